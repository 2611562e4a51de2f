#include "events/event_publisher.h"

#include <atomic>
#include <cstring>
#include <random>
#include <system_error>

#include "device/device.h"
#include "device/folder.h"
#include "guard.h"
#include "sockets/frame.h"
#include "sockets/local_socket.h"

namespace korvane::host {

namespace {

/** The total wait for all subscribers that do not read. */
constexpr int kStallMs = 200;

/** Random, so that a restarted service uses a different value. */
EventRun random_number() {
  std::random_device device;
  return EventRun{device()} << 32U | device();
}

std::atomic<EventRun> &current_run() {
  static std::atomic<EventRun> run{random_number()};
  return run;
}

void send_event(const std::filesystem::path &subscriber, const Bytes &frame,
                const Deadline &deadline, PublishResult &result) {
  try {
    const UniqueFd socket = connect_to(subscriber);
    ++(write_all(socket.get(), frame, deadline) == 0 ? result.reached : result.dropped);
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

void begin_event_run() {
  ++current_run();
}

std::vector<std::filesystem::path> event_subscribers(const std::string &event_name) {
  if (!is_plain_name(event_name)) {
    fail(EINVAL, "event name");
  }
  const auto folder = Device::current().run_directory(std::filesystem::path("events") / event_name);
  std::vector<std::filesystem::path> subscribers;
  for (const std::string &name : names_in(folder)) {
    const bool is_unlisted = name.front() == '.';
    if (!is_unlisted) subscribers.push_back(folder / name);
  }
  return subscribers;
}

Bytes event_frame(const EventBundle &payload) {
  const EventRun run = current_run();
  Bytes contents(sizeof(run));
  std::memcpy(contents.data(), &run, sizeof(run));
  const Parcel values = payload.encode();
  contents.insert(contents.end(), values.bytes().begin(), values.bytes().end());
  Bytes frame;
  if (!append_frame(frame, contents)) {
    fail(EMSGSIZE, "event payload");
  }
  return frame;
}

PublishResult publish_event(const std::string &event_name, const EventBundle &payload) {
  const auto subscribers = event_subscribers(event_name);
  const Bytes frame = event_frame(payload);
  const Deadline deadline(kStallMs);
  PublishResult result;
  for (const auto &subscriber : subscribers) send_event(subscriber, frame, deadline, result);
  return result;
}

}  // namespace korvane::host
