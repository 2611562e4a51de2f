/** Sending application events. */
#ifndef KORVANE_HOST_EVENT_PUBLISHER_H_
#define KORVANE_HOST_EVENT_PUBLISHER_H_

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "events/event_bundle.h"

namespace korvane::host {

struct PublishResult {
  std::size_t reached = 0;  ///< subscribers that have the event in their socket
  std::size_t dead = 0;     ///< sockets of subscribers that died, removed now
  std::size_t dropped = 0;  ///< subscribers that did not take the event in time, or are not ours
};

/** The sockets of those who hear of an event on the current device, some of them dead, perhaps. */
std::vector<std::filesystem::path> event_subscribers(const std::string &event_name);

/**
 * Sends an event to every subscriber on the current device.
 *
 * Waits for a subscriber that takes nothing only briefly. Throws std::system_error
 * when there is no device.
 */
PublishResult publish_event(const std::string &event_name, const EventBundle &payload);

}  // namespace korvane::host

#endif  // KORVANE_HOST_EVENT_PUBLISHER_H_
