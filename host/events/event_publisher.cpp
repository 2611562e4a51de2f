#include "events/event_publisher.h"

#include <system_error>

#include "device/device.h"
#include "device/folder.h"
#include "sockets/frame.h"
#include "sockets/local_socket.h"

namespace korvane::host {

namespace {

constexpr int kStallMs = 200;

void send_event(const std::filesystem::path &subscriber, const Bytes &frame,
                PublishResult &result) {
  try {
    const UniqueFd socket = connect_to(subscriber);
    ++(write_all(socket.get(), frame, kStallMs) == 0 ? result.reached : result.dropped);
  } catch (const std::system_error &error) {
    if (error.code() == std::errc::no_such_file_or_directory) return;  // unsubscribed meanwhile
    if (error.code() != std::errc::connection_refused) {
      ++result.dropped;
      return;
    }
    std::error_code ignored;
    std::filesystem::remove(subscriber, ignored);
    ++result.dead;
  }
}

}  // namespace

std::vector<std::filesystem::path> event_subscribers(const std::string &event_name) {
  if (!is_plain_name(event_name)) {
    throw std::system_error(EINVAL, std::generic_category(), "event name");
  }
  const auto folder = Device::current().run_directory(std::filesystem::path("events") / event_name);
  std::vector<std::filesystem::path> subscribers;
  for (const std::string &name : names_in(folder)) {
    const bool is_unlisted = name.front() == '.';
    if (!is_unlisted) subscribers.push_back(folder / name);
  }
  return subscribers;
}

PublishResult publish_event(const std::string &event_name, const EventBundle &payload) {
  const auto subscribers = event_subscribers(event_name);
  Bytes frame;
  if (!append_frame(frame, payload.encode().bytes())) {
    throw std::system_error(EMSGSIZE, std::generic_category(), "event payload");
  }
  PublishResult result;
  for (const auto &subscriber : subscribers) send_event(subscriber, frame, result);
  return result;
}

}  // namespace korvane::host
