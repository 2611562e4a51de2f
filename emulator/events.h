/** The service manager's application events. */
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

/** A code as events carry it: a byte value of four bytes in the device's byte order. */
host::EventBundle::Bytes code_bytes(std::int32_t code);

class Events {
 public:
  explicit Events(const Trace &trace) : trace_(trace) {}

  /**
   * Publishes "event.<service manager>.<status>"; the number of subscribers it reached. Throws
   * std::system_error when it cannot be published.
   */
  std::size_t publish(const std::string &status, const EventPayload &payload);
  /** The same for who cannot help it: complains on standard error, and has reached nobody. */
  std::size_t tell(const std::string &status, const EventPayload &payload);
  std::size_t published() const { return published_; }

 private:
  const Trace &trace_;
  std::size_t published_ = 0;
};

/** How many subscriptions to an event there are on the current device; none that cannot be seen. */
std::size_t subscriptions(const std::string &status);

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_EVENTS_H_
