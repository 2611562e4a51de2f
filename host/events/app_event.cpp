// Subscriptions to application events. Each has a listening socket under run/events/<event name>/;
// a sender connects, writes one frame and closes.
#include "app_event.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <list>
#include <memory>
#include <optional>

#include "device/device.h"
#include "events/bundle_handle.h"
#include "events/event_publisher.h"
#include "guard.h"
#include "loop/main_loop.h"
#include "loop/scoped_source.h"
#include "process.h"
#include "sockets/local_socket.h"
#include "sockets/wait_limits.h"

using korvane::host::EventBundle;
using korvane::host::EventRun;
using korvane::host::FrameReader;
using korvane::host::guarded;
using korvane::host::MainLoop;
using korvane::host::Parcel;
using korvane::host::ReadState;
using korvane::host::ScopedSource;
using korvane::host::ScopedTimer;
using korvane::host::UniqueFd;

namespace {

/** One subscription. Loop handlers hold a reference while they run. */
class Subscription : public std::enable_shared_from_this<Subscription> {
 public:
  Subscription(const char *event_name, event_cb callback, void *user_data)
      : name_(event_name), callback_(callback), user_data_(user_data) {}
  Subscription(const Subscription &) = delete;
  Subscription &operator=(const Subscription &) = delete;
  ~Subscription() { stop(); }

  /**
   * Publishes the socket only once the loop watches it; otherwise an event could be delivered after
   * a later disconnect.
   */
  void start() {
    static std::atomic<unsigned> next_number{0};
    const auto folder =
        korvane::host::Device::current().run_directory(std::filesystem::path("events") / name_);
    path_ = korvane::host::ListenerPath(
        folder / (std::to_string(getpid()) + "." + std::to_string(next_number++)));
    listener_ = path_.listen();
    source_ = watch(listener_, [](Subscription &self) { self.accept_senders(); });
    path_.enlist();
  }

  /** In a child made by fork the socket's path is not removed: it belongs to the parent. */
  void stop() {
    if (mark_.is_ours()) path_.remove();
    source_.reset();
    senders_.clear();
    due_.clear();
    listener_.reset();
  }

 private:
  struct Sender {
    UniqueFd socket;
    FrameReader reader;
    ScopedSource source;
    ScopedTimer patience;
  };
  using Senders = std::list<Sender>;

  template <typename Handle>
  ScopedSource watch(const UniqueFd &socket, Handle handle) {
    return ScopedSource(MainLoop::instance(), socket.get(), EPOLLIN,
                        [weak = weak_from_this(), handle](std::uint32_t) {
                          if (const auto self = weak.lock()) handle(*self);
                        });
  }

  /**
   * Delivers the waiting events of the first run. Senders of later runs are served by their own
   * sources, after the disconnects that happened between the runs.
   */
  void accept_senders() {
    // Re-arming while no sender waits puts the socket behind the sources that are ready by now.
    while (accept_waiting()) source_.change_events(EPOLLIN);
    std::optional<EventRun> first;
    for (auto next = senders_.begin(); next != senders_.end();) {
      const auto sender = next++;
      const auto run = run_of(*sender);
      if (!first) first = run;
      if (run && run == first) read(sender);
    }
    deliver();
  }

  bool accept_waiting() {
    bool some = false;
    while (UniqueFd socket = korvane::host::accept_peer(listener_.get())) {
      some = true;
      guarded([&] {
        add_sender(std::move(socket));
        return 0;
      });
    }
    return some;
  }

  /** Watches a sender before its data is read; this fixes its position in the loop. */
  void add_sender(UniqueFd socket) {
    Senders added(1);
    const auto sender = added.begin();
    sender->socket = std::move(socket);
    sender->patience =
        ScopedTimer(MainLoop::instance(), std::chrono::milliseconds(korvane::host::limits.greeting),
                    [weak = weak_from_this(), sender] {
                      if (const auto self = weak.lock()) self->senders_.erase(sender);
                    });
    sender->source = watch(sender->socket, [sender](Subscription &self) {
      self.read(sender);
      self.deliver();
    });
    senders_.splice(senders_.end(), added);
  }

  /** The run of a complete event header that has arrived but was not read yet. */
  static std::optional<EventRun> run_of(const Sender &sender) {
    std::array<std::uint8_t, korvane::host::kFrameHeaderSize + sizeof(EventRun)> bytes;
    if (!sender.reader.empty() || recv(sender.socket.get(), bytes.data(), bytes.size(),
                                       MSG_PEEK | MSG_DONTWAIT) != ssize_t{bytes.size()}) {
      return std::nullopt;
    }
    EventRun run;
    std::memcpy(&run, &bytes[korvane::host::kFrameHeaderSize], sizeof(run));
    return run;
  }

  /**
   * Reads the available data. Removes the sender when its event is complete or the connection has
   * failed.
   */
  void read(Senders::iterator sender) {
    bool ends = true;
    guarded([&] {
      ReadState state = ReadState::kData;
      while (state == ReadState::kData && !sender->reader.has_frame()) {
        state = korvane::host::read_available(sender->socket.get(), sender->reader);
      }
      ends = state != ReadState::kNothing;
      if (const auto frame = sender->reader.next()) add_event(*frame);
      return 0;
    });
    if (ends) senders_.erase(sender);
  }

  void add_event(const korvane::host::Bytes &frame) {
    if (frame.size() < sizeof(EventRun)) return;
    auto values = EventBundle::decode(Parcel({frame.begin() + sizeof(EventRun), frame.end()}));
    if (values) due_.emplace_back(std::move(*values));
  }

  void deliver() {
    while (!due_.empty()) {
      std::list<bundle_s> event;
      event.splice(event.begin(), due_, due_.begin());
      callback_(name_.c_str(), &event.front(), user_data_);
    }
  }

  const std::string name_;
  const event_cb callback_;
  void *const user_data_;
  const korvane::host::ProcessMark mark_;
  korvane::host::ListenerPath path_;
  UniqueFd listener_;
  ScopedSource source_;
  Senders senders_;
  std::list<bundle_s> due_;  ///< read but not delivered yet
};

}  // namespace

struct event_handler_s {
  std::shared_ptr<Subscription> subscription;
};

int event_add_event_handler(const char *event_name, event_cb callback, void *user_data,
                            event_handler_h *handler) {
  return guarded([=] {
    if (event_name == nullptr || callback == nullptr || handler == nullptr ||
        !korvane::host::is_plain_name(event_name)) {
      return -EINVAL;
    }
    auto handle = std::make_unique<event_handler_s>();
    handle->subscription = std::make_shared<Subscription>(event_name, callback, user_data);
    handle->subscription->start();
    *handler = handle.release();
    return 0;
  });
}

int event_remove_event_handler(event_handler_h handler) {
  return guarded([=] {
    if (handler == nullptr) return -EINVAL;
    handler->subscription->stop();
    delete handler;
    return 0;
  });
}

const char *get_error_message(int error) {
  constexpr int kMaxErrno = 4095;
  if (error == static_cast<int>(0xFEEB0071U)) return "No such package";
  const char *text = error > 0 || error < -kMaxErrno ? nullptr : strerrordesc_np(-error);
  return text != nullptr ? text : "Unknown error";
}
