/** Publishes the application events of the service manager. */
#ifndef KORVANE_EMULATOR_EVENTS_H_
#define KORVANE_EMULATOR_EVENTS_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "events/event_bundle.h"
#include "trace.h"

namespace korvane::emulator {

constexpr char kAgentStatus[] = "agent_status";
constexpr char kUpdateStatus[] = "update_status";
constexpr char kModelStatus[] = "model_status";

using EventPayload = std::vector<std::pair<std::string, host::EventBundle::Value>>;

/** A code as events contain it: a byte value of four bytes in the device's byte order. */
host::EventBundle::Bytes code_bytes(std::int32_t code);

class Events {
 public:
  explicit Events(const Trace &trace) : trace_(trace) {}

  /**
   * Publishes "event.<service manager>.<status>". Returns the number of subscribers that received
   * it. Throws std::system_error when publishing fails.
   */
  std::size_t publish(const std::string &status, const EventPayload &payload);
  /** Publishes as publish() does, but logs a failure to standard error and returns 0. */
  std::size_t publish_or_log(const std::string &status, const EventPayload &payload);
  std::size_t published() const { return published_; }

 private:
  const Trace &trace_;
  std::size_t published_ = 0;
};

/** Number of subscriptions to an event on the current device; 0 when they cannot be read. */
std::size_t subscriptions(const std::string &status);

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_EVENTS_H_
