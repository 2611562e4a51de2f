/** Publishes application events. */
#ifndef KORVANE_HOST_EVENT_PUBLISHER_H_
#define KORVANE_HOST_EVENT_PUBLISHER_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "events/event_bundle.h"
#include "sockets/frame.h"

namespace korvane::host {

/**
 * The number at the start of each event that identifies its run. The service did not disconnect all
 * clients between two events of the same run.
 */
using EventRun = std::uint64_t;

/**
 * Starts a new run for the events that this process publishes from now on. Called when a service
 * has closed its connections.
 */
void begin_event_run();

struct PublishResult {
  std::size_t reached = 0;  ///< subscribers whose socket has received the event
  std::size_t dead = 0;     ///< sockets of subscribers that have exited; these are removed
  std::size_t dropped = 0;  ///< too slow, or of another user
};

/** The sockets of all subscribers to an event on the current device; some may be stale. */
std::vector<std::filesystem::path> event_subscribers(const std::string &event_name);

/** Encodes an event. Throws std::system_error: EMSGSIZE when the payload is too long. */
Bytes event_frame(const EventBundle &payload);

/**
 * Sends an event to every subscriber on the current device.
 *
 * Waits briefly for subscribers that do not read; the limit is shared by all of them. Throws
 * std::system_error when the device does not exist.
 */
PublishResult publish_event(const std::string &event_name, const EventBundle &payload);

}  // namespace korvane::host

#endif  // KORVANE_HOST_EVENT_PUBLISHER_H_
