/** Sending application events. */
#ifndef KORVANE_HOST_EVENT_PUBLISHER_H_
#define KORVANE_HOST_EVENT_PUBLISHER_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "events/event_bundle.h"
#include "sockets/frame.h"

namespace korvane::host {

/**
 * The bytes in front of each event that tell runs of events apart. Events of the same run were
 * published without the end of all connections of the service between them.
 */
using EventRun = std::array<std::uint8_t, 8>;

/**
 * Gives the events that this process publishes from now on another run. To be called when a
 * service has ended its connections.
 */
void begin_event_run();

struct PublishResult {
  std::size_t reached = 0;  ///< subscribers that have the event in their socket
  std::size_t dead = 0;     ///< sockets of subscribers that died, removed now
  std::size_t dropped = 0;  ///< subscribers that did not take the event in time, or are not ours
};

/** The sockets of the subscribers to an event on the current device; some may be dead. */
std::vector<std::filesystem::path> event_subscribers(const std::string &event_name);

/** What is sent for an event. Throws std::system_error: EMSGSIZE when the payload is too long. */
Bytes event_frame(const EventBundle &payload);

/**
 * Sends an event to every subscriber on the current device.
 *
 * Waits briefly for subscribers that take nothing, for all of them together. Throws
 * std::system_error when there is no device.
 */
PublishResult publish_event(const std::string &event_name, const EventBundle &payload);

}  // namespace korvane::host

#endif  // KORVANE_HOST_EVENT_PUBLISHER_H_
