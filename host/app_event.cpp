// Subscriptions to application events. Each has a listening socket under run/events/<event name>/;
// a sender connects, writes one frame and closes.
#include "app_event.h"

#include <sys/epoll.h>

#include <atomic>
#include <cstring>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>

#include "bundle_handle.h"
#include "device.h"
#include "guard.h"
#include "local_socket.h"
#include "main_loop.h"

using korvane::host::Bytes;
using korvane::host::EventBundle;
using korvane::host::FrameReader;
using korvane::host::guarded;
using korvane::host::MainLoop;
using korvane::host::Parcel;
using korvane::host::UniqueFd;

namespace {

/** One subscription; kept alive by whoever is delivering an event of it. */
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
    path_ = folder / (std::to_string(getpid()) + "." + std::to_string(next_number++));
    listener_ = korvane::host::listen_unlisted(path_);
    source_ = MainLoop::instance().add_descriptor(listener_.get(), EPOLLIN,
                                                  [weak = weak_from_this()](std::uint32_t) {
                                                    if (const auto self = weak.lock())
                                                      self->accept_senders();
                                                  });
    korvane::host::enlist(path_);
  }

  void stop() {
    active_ = false;
    MainLoop::instance().remove(source_);
    for (const auto &[source, sender] : senders_) MainLoop::instance().remove(source);
    senders_.clear();
    MainLoop::instance().remove(turn_);
    waiting_.clear();
    listener_.reset();
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }

 private:
  struct Sender {
    UniqueFd socket;
    FrameReader reader;
  };

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
    while (UniqueFd socket = korvane::host::accept_peer(listener_.get())) {
      waiting_.push_back(std::make_shared<Sender>());
      waiting_.back()->socket = std::move(socket);
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
      return korvane::host::peer_process(waiting_.front()->socket.get());
    };
    const pid_t process = first_process();
    while (!waiting_.empty() && first_process() == process) {
      const auto sender = std::move(waiting_.front());
      waiting_.pop_front();
      take(sender);
    }
    if (waiting_.empty()) return;
    turn_ = MainLoop::instance().post([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->serve_waiting();
    });
  }

  /**
   * Watches a sender, then reads what it sent: read before, what comes in between would be ranked
   * behind all that happens until it is watched.
   */
  void take(const std::shared_ptr<Sender> &sender) {
    const auto source = std::make_shared<MainLoop::SourceId>();
    *source = MainLoop::instance().add_descriptor(sender->socket.get(), EPOLLIN,
                                                  [weak = weak_from_this(), source](std::uint32_t) {
                                                    if (const auto self = weak.lock())
                                                      self->read(*source);
                                                  });
    senders_.emplace(*source, sender);
    read(*source);
  }

  /** Reads what is there; the sender is done with once its event is whole, or it has gone. */
  void read(MainLoop::SourceId source) {
    const auto entry = senders_.find(source);
    if (entry == senders_.end() || !ends(*entry->second)) return;
    const auto sender = entry->second;
    senders_.erase(entry);
    MainLoop::instance().remove(source);
    deliver(sender->reader);
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

  void deliver(FrameReader &reader) {
    auto frame = reader.next();
    if (!frame || !active_) return;
    auto values = EventBundle::decode(Parcel(std::move(*frame)));
    if (!values) return;
    const auto keep_alive = shared_from_this();
    bundle_s bundle{std::move(*values), {}};
    callback_(name_.c_str(), &bundle, user_data_);
  }

  const std::string name_;
  const event_cb callback_;
  void *const user_data_;
  bool active_ = true;
  std::filesystem::path path_;
  UniqueFd listener_;
  MainLoop::SourceId source_ = 0;
  std::deque<std::shared_ptr<Sender>> waiting_;  ///< accepted, not read from yet
  MainLoop::SourceId turn_ = 0;                  ///< set while some wait for their turn
  std::map<MainLoop::SourceId, std::shared_ptr<Sender>> senders_;
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
