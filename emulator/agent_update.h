/** Updates of agents. */
#ifndef KORVANE_EMULATOR_AGENT_UPDATE_H_
#define KORVANE_EMULATOR_AGENT_UPDATE_H_

#include <chrono>
#include <string>
#include <vector>

#include "events.h"
#include "faults.h"
#include "loop/main_loop.h"
#include "service_state.h"

namespace korvane::emulator {

/**
 * Runs at most one update at a time. It publishes update-status events: "Start", a result for each
 * application that requested the update, then "Complete" or "Fail". The new versions are installed
 * before the result is published.
 */
class AgentUpdate {
 public:
  AgentUpdate(host::MainLoop &loop, std::chrono::milliseconds tick, ServiceState &state,
              Faults &faults, Events &events)
      : loop_(loop), tick_(tick), state_(state), faults_(faults), events_(events) {}

  bool running() const { return running_; }
  const std::vector<std::string> &agents() const { return agents_; }

  /** Starts an update on behalf of an application, or joins the one that is running. */
  void request(const std::string &app_id, std::vector<std::string> agents);

 private:
  void schedule_step();
  void step();
  /** 0, or the code that explains why the agents could not be updated. */
  std::int32_t apply();
  void finish();

  host::MainLoop &loop_;
  const std::chrono::milliseconds tick_;
  ServiceState &state_;
  Faults &faults_;
  Events &events_;
  bool running_ = false;
  std::size_t steps_left_ = 0;
  std::vector<std::string> agents_;
  std::vector<std::string> requesters_;
};

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_AGENT_UPDATE_H_
