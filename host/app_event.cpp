// Subscriptions to application events. Each has a listening socket under run/events/<event name>/;
// a sender connects, writes one frame and closes.
#include "app_event.h"

#include <sys/epoll.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <vector>

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

/** The longest pause of a sender that is waited for. */
constexpr int kSenderPauseMs = 500;

/** One subscription; kept alive by whoever is delivering an event of it. */
class Subscription : public std::enable_shared_from_this<Subscription> {
 public:
  Subscription(const char *event_name, event_cb callback, void *user_data)
      : name_(event_name), callback_(callback), user_data_(user_data) {}

  void start() {
    static std::atomic<unsigned> next_number{0};
    const auto folder =
        korvane::host::Device::current().run_directory(std::filesystem::path("events") / name_);
    path_ = folder / (std::to_string(getpid()) + "." + std::to_string(next_number++));
    listener_ = korvane::host::listen_at(path_);
    source_ = MainLoop::instance().add_descriptor(listener_.get(), EPOLLIN,
                                                  [weak = weak_from_this()](std::uint32_t) {
                                                    if (const auto self = weak.lock())
                                                      self->accept_senders();
                                                  });
  }

  void stop() {
    active_ = false;
    MainLoop::instance().remove(source_);
    for (const auto &[source, sender] : senders_) MainLoop::instance().remove(source);
    senders_.clear();
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
   * Takes everyone of one process who waits now: what it sent before it dropped a connection is
   * not left for a turn behind the drop. What the next process sent, once that one had gone,
   * waits its turn.
   */
  void accept_senders() {
    std::vector<std::shared_ptr<Sender>> senders;
    while (UniqueFd socket = korvane::host::accept_peer(listener_.get())) {
      senders.push_back(std::make_shared<Sender>());
      senders.back()->socket = std::move(socket);
    }
    if (senders.empty()) return;
    const pid_t first = korvane::host::peer_process(senders.front()->socket.get());
    for (const auto &sender : senders) {
      if (!active_) return;
      if (korvane::host::peer_process(sender->socket.get()) == first) {
        take(sender);
      } else {
        MainLoop::instance().post([weak = weak_from_this(), sender] {
          const auto self = weak.lock();
          if (self != nullptr && self->active_) self->take(sender);
        });
      }
    }
  }

  void take(const std::shared_ptr<Sender> &sender) {
    if (read_event(*sender)) return;
    // The rest of the event is still under way.
    auto source = std::make_shared<MainLoop::SourceId>();
    *source = MainLoop::instance().add_descriptor(
        sender->socket.get(), EPOLLIN, [weak = weak_from_this(), sender, source](std::uint32_t) {
          const auto self = weak.lock();
          if (self == nullptr) return;
          const MainLoop::SourceId id = *source;
          const auto keep = sender;
          if (!keep->reader.has_frame() && !self->ends(*keep)) return;
          MainLoop::instance().remove(id);
          self->senders_.erase(id);
          self->deliver(keep->reader);
        });
    senders_.emplace(*source, sender);
  }

  /** Reads what is there; true when the sender is done with, its event delivered if it was whole.
   */
  /** Reads what is there; true when the sender is done with, its event delivered if it was whole.
   */
  bool read_event(Sender &sender) {
    if (!ends(sender)) return false;
    deliver(sender.reader);
    return true;
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
  if (error == static_cast<int>(0xFEEB0071U)) return "No such package";
  const char *text = error > 0 ? nullptr : strerrordesc_np(-error);
  return text != nullptr ? text : "Unknown error";
}
