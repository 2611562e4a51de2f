#include "agent_update.h"

#include <algorithm>
#include <iostream>
#include <utility>

namespace korvane::emulator {

namespace {

constexpr std::int32_t kStorageFailure = 1;

}  // namespace

void AgentUpdate::request(const std::string &app_id, std::vector<std::string> agents) {
  if (std::find(requesters_.begin(), requesters_.end(), app_id) == requesters_.end()) {
    requesters_.push_back(app_id);
  }
  if (running_) return;
  running_ = true;
  agents_ = std::move(agents);
  steps_left_ = agents_.size();
  events_.publish_or_log(kUpdateStatus, {{"Start", agents_}});
  schedule_step();
}

void AgentUpdate::schedule_step() {
  loop_.add_timer(tick_, [this] { step(); });
}

void AgentUpdate::step() {
  if (steps_left_ == 0) {
    finish();
    return;
  }
  --steps_left_;
  schedule_step();
}

std::int32_t AgentUpdate::apply() {
  if (const auto failure = std::exchange(faults_.update_failure, std::nullopt)) return *failure;
  try {
    for (const std::string &agent : agents_) state_.update_agent(agent);
    return 0;
  } catch (const std::exception &error) {
    std::cerr << "svcmgr-emulator: the update failed: " << error.what() << '\n';
    return kStorageFailure;
  }
}

void AgentUpdate::finish() {
  const std::int32_t failure = apply();
  const auto own_result = std::exchange(faults_.own_result, std::nullopt);
  const auto requesters = std::exchange(requesters_, {});
  running_ = false;
  if (failure == 0 || own_result) {
    for (const std::string &app_id : requesters) {
      events_.publish_or_log(kUpdateStatus, {{app_id, code_bytes(own_result.value_or(0))}});
    }
  }
  if (failure == 0) {
    events_.publish_or_log(kUpdateStatus, {{"Complete", "updated"}});
  } else {
    events_.publish_or_log(kUpdateStatus, {{"Fail", code_bytes(failure)}});
  }
}

}  // namespace korvane::emulator
