// Subscriptions to application events. Each has a listening socket under run/events/<event name>/;
// a sender connects, writes one frame and closes.
#include "app_event.h"

#include <sys/epoll.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <list>
#include <memory>
#include <optional>

#include "device/device.h"
#include "events/bundle_handle.h"
#include "guard.h"
#include "loop/main_loop.h"
#include "process.h"
#include "sockets/local_socket.h"

using korvane::host::EventBundle;
using korvane::host::FrameReader;
using korvane::host::guarded;
using korvane::host::MainLoop;
using korvane::host::Parcel;
using korvane::host::UniqueFd;

namespace {

/** One subscription. Whoever calls it from the loop keeps it alive meanwhile. */
class Subscription : public std::enable_shared_from_this<Subscription> {
 public:
  Subscription(const char *event_name, event_cb callback, void *user_data)
      : name_(event_name), callback_(callback), user_data_(user_data) {}
  Subscription(const Subscription &) = delete;
  Subscription &operator=(const Subscription &) = delete;
  ~Subscription() { stop(); }

  /**
   * Publishers see the socket once it is watched: what they send before, their dropping a
   * connection would overtake.
   */
  void start() {
    static std::atomic<unsigned> next_number{0};
    const auto folder =
        korvane::host::Device::current().run_directory(std::filesystem::path("events") / name_);
    path_ = korvane::host::ListenerPath(
        folder / (std::to_string(getpid()) + "." + std::to_string(next_number++)));
    listener_ = path_.listen();
    source_ = MainLoop::instance().add_descriptor(listener_.get(), EPOLLIN,
                                                  [weak = weak_from_this()](std::uint32_t) {
                                                    if (const auto self = weak.lock())
                                                      self->accept_senders();
                                                  });
    path_.enlist();
  }

  /** In a child made by fork the subscription goes on being its parent's. */
  void stop() {
    if (!std::exchange(active_, false)) return;
    if (mark_.is_ours()) {
      for (const MainLoop::SourceId source : {source_, turn_}) forget(source);
      for (const Sender &sender : senders_) forget(sender.source);
      path_.remove();
    }
    senders_.clear();
    waiting_.clear();
    listener_.reset();
  }

 private:
  struct Sender {
    UniqueFd socket;
    FrameReader reader;
    MainLoop::SourceId source = 0;  ///< 0 while it waits for its turn
  };
  using Senders = std::list<Sender>;

  static void forget(MainLoop::SourceId source) {
    if (source != 0) MainLoop::instance().remove(source);
  }

  /**
   * The socket is watched again before anything is delivered: whoever connects from then on has
   * a place in the order of what happens, and the others are here.
   */
  void accept_senders() {
    accept_waiting();
    MainLoop::instance().change_events(source_, EPOLLIN);
    accept_waiting();
    if (turn_ == 0) serve_waiting();
  }

  void accept_waiting() {
    for (;;) {
      Senders next(1);  // first, so that nobody who was accepted is lost for want of memory
      next.front().socket = korvane::host::accept_peer(listener_.get());
      if (!next.front().socket) return;
      waiting_.splice(waiting_.end(), next);
    }
  }

  /**
   * Serves the senders of one process: what it sent before it dropped a connection is not left for
   * a turn behind the drop. What the next process sent, once that one had gone, waits its turn.
   */
  void serve_waiting() {
    turn_ = 0;
    if (waiting_.empty()) return;
    const auto first_process = [this] {
      return korvane::host::peer_process(waiting_.front().socket.get());
    };
    const pid_t process = first_process();
    while (!waiting_.empty() && first_process() == process) take_first();
    if (waiting_.empty()) return;
    turn_ = MainLoop::instance().post([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->serve_waiting();
    });
  }

  /**
   * Watches the first sender, then reads what it sent: read before, what comes in between would be
   * ranked behind all that happens until it is watched. Failing, the sender is the first still.
   */
  void take_first() {
    const auto sender = waiting_.begin();
    sender->source = MainLoop::instance().add_descriptor(
        sender->socket.get(), EPOLLIN, [weak = weak_from_this(), sender](std::uint32_t) {
          if (const auto self = weak.lock()) self->deliver(self->finish(sender));
        });
    senders_.splice(senders_.end(), waiting_, sender);
    std::optional<bundle_s> event;
    try {
      event = finish(sender);
    } catch (...) {
      forget(std::exchange(sender->source, 0));
      waiting_.splice(waiting_.begin(), senders_, sender);
      throw;
    }
    deliver(std::move(event));
  }

  /**
   * Reads what is there. The sender is done with once its event, which is returned, is whole, or it
   * has gone.
   */
  std::optional<bundle_s> finish(Senders::iterator sender) {
    if (!ends(*sender)) return std::nullopt;
    auto event = event_of(sender->reader);
    forget(sender->source);
    senders_.erase(sender);
    return event;
  }

  void deliver(std::optional<bundle_s> event) {
    if (!event) return;
    callback_(name_.c_str(), &*event, user_data_);
  }

  static bool ends(Sender &sender) {
    for (;;) {
      switch (korvane::host::read_available(sender.socket.get(), sender.reader)) {
        case korvane::host::ReadState::kData:
          if (sender.reader.has_frame()) return true;
          break;
        case korvane::host::ReadState::kNothing:
          return false;
        case korvane::host::ReadState::kEnd:
          return true;
      }
    }
  }

  static std::optional<bundle_s> event_of(const FrameReader &reader) {
    if (!reader.has_frame()) return std::nullopt;
    auto values = EventBundle::decode(Parcel(reader.front()));
    if (!values) return std::nullopt;
    return bundle_s(std::move(*values));
  }

  const std::string name_;
  const event_cb callback_;
  void *const user_data_;
  const korvane::host::ProcessMark mark_;
  bool active_ = true;
  korvane::host::ListenerPath path_;
  UniqueFd listener_;
  MainLoop::SourceId source_ = 0;
  Senders waiting_;              ///< accepted, not read from yet
  MainLoop::SourceId turn_ = 0;  ///< set while some wait for their turn
  Senders senders_;              ///< watched
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
