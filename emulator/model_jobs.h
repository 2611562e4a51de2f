/** Updates and removals of models. */
#ifndef KORVANE_EMULATOR_MODEL_JOBS_H_
#define KORVANE_EMULATOR_MODEL_JOBS_H_

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "events.h"
#include "faults.h"
#include "loop/main_loop.h"
#include "service_port.h"
#include "service_state.h"

namespace korvane::emulator {

/** One request to update or uninstall models. */
struct ModelJob {
  Address address;
  Method method;
  DelegateBlock delegate;
  std::vector<Model> models;
  std::int32_t result;  ///< the result number in its reports
  std::size_t index = 0;
  std::int32_t percentage = 0;
};

/**
 * Runs any number of jobs concurrently. Each sends reports to its connection and publishes model-
 * status events. A job continues when its connection is lost. The models change when the whole job
 * has completed, and do not change when it fails.
 */
class ModelJobs {
 public:
  ModelJobs(host::MainLoop &loop, std::chrono::milliseconds tick, ServiceState &state,
            Faults &faults, Events &events, ServicePort &port)
      : loop_(loop), tick_(tick), state_(state), faults_(faults), events_(events), port_(port) {}

  void start(ModelJob job);
  /** Reports a failure to the client without starting the job. */
  void refuse(const ModelJob &job) { report(job, kStateFailed, job.result); }
  const std::map<std::uint64_t, ModelJob> &jobs() const { return jobs_; }

 private:
  void schedule_step(std::uint64_t id);
  void step(std::uint64_t id);
  void advance(ModelJob &job);
  /** kDone, or the result number of the error that stops the job. */
  std::int32_t obstacle(const ModelJob &job);
  std::int32_t apply(const ModelJob &job);
  void end(std::uint64_t id, std::int32_t failure);
  void report(const ModelJob &job, std::int32_t state, std::int32_t result);

  host::MainLoop &loop_;
  const std::chrono::milliseconds tick_;
  ServiceState &state_;
  Faults &faults_;
  Events &events_;
  ServicePort &port_;
  std::uint64_t next_id_ = 1;
  std::map<std::uint64_t, ModelJob> jobs_;
};

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_MODEL_JOBS_H_
