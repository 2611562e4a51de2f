/** Updates and uninstallations of models. */
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
  std::int32_t result;  ///< the number that its reports carry
  std::size_t index = 0;
  std::int32_t percentage = 0;
};

/**
 * Any number of jobs at a time, each with reports to its connection and
 * model-status events. A job whose connection is lost goes on unheard. Models
 * change when all of a job's models are through, and not at all when it fails.
 */
class ModelJobs {
 public:
  ModelJobs(host::MainLoop &loop, std::chrono::milliseconds tick, ServiceState &state,
            Faults &faults, Events &events, ServicePort &port)
      : loop_(loop), tick_(tick), state_(state), faults_(faults), events_(events), port_(port) {}

  void start(ModelJob job);
  /** Tells a job's client that it failed, without starting it. */
  void refuse(const ModelJob &job) { report(job, kStateFailed, job.result); }
  const std::map<std::uint64_t, ModelJob> &jobs() const { return jobs_; }

 private:
  void schedule_step(std::uint64_t id);
  void step(std::uint64_t id);
  void advance(ModelJob &job);
  /** kDone, or the number of what keeps the job from going on. */
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
