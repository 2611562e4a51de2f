// The client side of RPC ports.
#include <sys/epoll.h>
#include <sys/random.h>
#include <sys/socket.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <vector>

#include "guard.h"
#include "local_socket.h"
#include "main_loop.h"
#include "rpc_port_handles.h"
#include "rpc_port_protocol.h"

using korvane::host::Bytes;
using korvane::host::guarded;
using korvane::host::Parcel;
using korvane::host::Port;
using korvane::host::RpcPortProxy;

namespace korvane::host {

namespace {

constexpr int kHandshakeTimeoutMs = 5000;
constexpr int kSendStallMs = 10000;
constexpr int kNoLimit = -1;

std::string new_token() {
  std::uint8_t bytes[16] = {};
  [[maybe_unused]] const ssize_t size = getrandom(bytes, sizeof(bytes), 0);
  return std::string(std::begin(bytes), std::end(bytes));
}

template <typename Callback>
struct Registration {
  Callback callback;
  void *user_data;
};

template <typename Callback>
using Registrations = std::vector<Registration<Callback>>;

}  // namespace

/**
 * One connection and its events.
 *
 * The loop watches the main port for hang-up only, since its parcels are taken
 * by whoever waits for a reply, and collects what arrives on the callback port.
 */
class RpcPortProxy : public std::enable_shared_from_this<RpcPortProxy> {
 public:
  RpcPortProxy() { main_.proxy = callback_.proxy = this; }

  Registrations<rpc_port_proxy_connected_event_cb> connected;
  Registrations<rpc_port_proxy_disconnected_event_cb> disconnected;
  Registrations<rpc_port_proxy_rejected_event_cb> rejected;
  Registrations<rpc_port_proxy_received_event_cb> received;

  /** Opens both sockets and says hello; the answer is awaited elsewhere. */
  int open(const char *app_id, const char *port_name) {
    if (state_ != State::kIdle) return -EALREADY;
    endpoint_ = app_id;
    port_name_ = port_name;
    const auto path = rpc_socket_path(Device::current(), endpoint_, port_name_);
    const char *caller = std::getenv("KORVANE_APP_ID");
    Hello hello;
    hello.token = new_token();
    hello.app_id = caller != nullptr ? caller : "";
    for (const auto &[port, number] :
         {std::pair(&main_, Port::kMain), std::pair(&callback_, Port::kCallback)}) {
      hello.port = number;
      port->socket = connect_to(path);
      if (const int error = send_frame(*port, hello.encode().bytes())) return error;
    }
    state_ = State::kConnecting;
    return 0;
  }

  void await_answer() {
    main_source_ = watch(main_, EPOLLIN, [](RpcPortProxy &self) {
      const ReadState read = read_available(self.main_.socket.get(), self.main_.reader);
      auto answer = self.main_.reader.next();
      if (answer || read == ReadState::kEnd) self.answered(answer);
    });
  }

  void await_answer_here() {
    answered(read_frame(main_.socket.get(), main_.reader, kHandshakeTimeoutMs));
  }

  rpc_port_s *port(Port which) {
    if (state_ != State::kConnected) return nullptr;
    return which == Port::kMain ? &main_ : &callback_;
  }

  /**
   * The next parcel of a port; empty when the connection is lost, which the loop will report.
   * What the callback port collected before can be read until then.
   */
  std::optional<Bytes> read(rpc_port_s &from) {
    const bool collected = &from == &callback_ && from.reader.has_frame();
    if (broken_ && !collected) return std::nullopt;
    const rpc_port_s &other = &from == &main_ ? callback_ : main_;
    auto frame = read_frame(from.socket.get(), from.reader, kNoLimit, other.socket.get());
    if (!frame) give_up();
    if (&from == &callback_ && announced_ > 0) --announced_;
    return frame;
  }

  int send(rpc_port_s &to, const Bytes &payload) {
    if (broken_) return -EPIPE;
    const int error = send_frame(to, payload);
    if (error != 0 && error != -EMSGSIZE) give_up();
    return error;
  }

  /** Ends everything; no event is delivered any more. */
  void destroy() {
    destroyed_ = true;
    stop_watching();
    break_connection();
  }

 private:
  enum class State { kIdle, kConnecting, kConnected, kEnded };

  static int send_frame(rpc_port_s &port, const Bytes &payload) {
    Bytes frame;
    if (!append_frame(frame, payload)) return -EMSGSIZE;
    return -write_all(port.socket.get(), frame, kSendStallMs);
  }

  MainLoop::SourceId watch(const rpc_port_s &port, std::uint32_t epoll_events,
                           void (*handle)(RpcPortProxy &)) {
    return MainLoop::instance().add_descriptor(port.socket.get(), epoll_events,
                                               [weak = weak_from_this(), handle](std::uint32_t) {
                                                 if (const auto self = weak.lock()) handle(*self);
                                               });
  }

  void stop_watching() {
    MainLoop::instance().remove(std::exchange(main_source_, 0));
    MainLoop::instance().remove(std::exchange(callback_source_, 0));
  }

  /**
   * Nothing is read or sent any more. A peer that has ended its side hears of the end here only
   * when the application does, and may wait for that before it announces that it is back.
   */
  void give_up() {
    broken_ = true;
    if (!peer_has_ended(main_.socket.get()) && !peer_has_ended(callback_.socket.get())) {
      break_connection();
    }
  }

  /** Makes both ends see the end of the connection. */
  void break_connection() {
    broken_ = true;
    for (const rpc_port_s *port : {&main_, &callback_}) {
      if (port->socket) shutdown(port->socket.get(), SHUT_RDWR);
    }
  }

  void answered(const std::optional<Bytes> &answer) {
    std::int32_t verdict = kRejected;
    if (answer) Parcel(*answer).read_int32(verdict);
    if (verdict != kAccepted) {
      state_ = State::kEnded;
      stop_watching();
      break_connection();
      deliver(rejected);
      return;
    }
    state_ = State::kConnected;
    MainLoop::instance().remove(main_source_);
    main_source_ = watch(main_, EPOLLRDHUP, [](RpcPortProxy &self) { self.lost(); });
    callback_source_ =
        watch(callback_, EPOLLIN | EPOLLRDHUP, [](RpcPortProxy &self) { self.receive(); });
    deliver(connected, &main_);
  }

  void receive() {
    const ReadState read = read_available(callback_.socket.get(), callback_.reader);
    deliver_received();
    if (read == ReadState::kEnd && !destroyed_) lost();
  }

  /** What arrived before the end is delivered before it. */
  void lost() {
    if (state_ != State::kConnected) return;
    while (!destroyed_ &&
           read_available(callback_.socket.get(), callback_.reader) == ReadState::kData) {
      deliver_received();
    }
    deliver_received();
    if (destroyed_) return;
    callback_.reader = FrameReader();
    state_ = State::kEnded;
    stop_watching();
    break_connection();
    deliver(disconnected);
  }

  void deliver_received() {
    while (!destroyed_ && announced_ < callback_.reader.frame_count()) {
      ++announced_;
      deliver(received);
    }
  }

  /** Takes a copy, since a callback may register others. */
  template <typename Callback, typename... Arguments>
  void deliver(const Registrations<Callback> registrations, Arguments... arguments) {
    const auto keep_alive = shared_from_this();
    for (const auto &[callback, user_data] : registrations) {
      if (destroyed_) return;
      callback(endpoint_.c_str(), port_name_.c_str(), arguments..., user_data);
    }
  }

  State state_ = State::kIdle;
  bool destroyed_ = false;
  std::atomic<bool> broken_{false};
  std::string endpoint_;
  std::string port_name_;
  rpc_port_s main_;
  rpc_port_s callback_;
  std::size_t announced_ = 0;  ///< frames on the callback port that were told of and not taken
  MainLoop::SourceId main_source_ = 0;
  MainLoop::SourceId callback_source_ = 0;
};

}  // namespace korvane::host

struct rpc_port_proxy_s {
  std::shared_ptr<RpcPortProxy> proxy;
};

namespace {

template <typename Callback>
int add_callback(rpc_port_proxy_h proxy,
                 korvane::host::Registrations<Callback> RpcPortProxy::*registrations,
                 Callback callback, void *user_data) {
  return guarded([=] {
    if (proxy == nullptr || callback == nullptr) return -EINVAL;
    (proxy->proxy.get()->*registrations).push_back({callback, user_data});
    return 0;
  });
}

template <typename Await>
int connect(rpc_port_proxy_h proxy, const char *app_id, const char *port_name, Await await) {
  return guarded([=] {
    if (proxy == nullptr || app_id == nullptr || port_name == nullptr) return -EINVAL;
    const auto keep_alive = proxy->proxy;
    if (const int error = keep_alive->open(app_id, port_name)) return error;
    ((*keep_alive).*await)();
    return 0;
  });
}

}  // namespace

int rpc_port_proxy_create(rpc_port_proxy_h *proxy) {
  return guarded([=] {
    if (proxy == nullptr) return -EINVAL;
    *proxy = new rpc_port_proxy_s{std::make_shared<RpcPortProxy>()};
    return 0;
  });
}

int rpc_port_proxy_destroy(rpc_port_proxy_h proxy) {
  return guarded([=] {
    if (proxy == nullptr) return -EINVAL;
    proxy->proxy->destroy();
    delete proxy;
    return 0;
  });
}

int rpc_port_proxy_add_connected_event_cb(rpc_port_proxy_h proxy,
                                          rpc_port_proxy_connected_event_cb cb, void *user_data) {
  return add_callback(proxy, &RpcPortProxy::connected, cb, user_data);
}

int rpc_port_proxy_add_disconnected_event_cb(rpc_port_proxy_h proxy,
                                             rpc_port_proxy_disconnected_event_cb cb,
                                             void *user_data) {
  return add_callback(proxy, &RpcPortProxy::disconnected, cb, user_data);
}

int rpc_port_proxy_add_rejected_event_cb(rpc_port_proxy_h proxy,
                                         rpc_port_proxy_rejected_event_cb cb, void *user_data) {
  return add_callback(proxy, &RpcPortProxy::rejected, cb, user_data);
}

int rpc_port_proxy_add_received_event_cb(rpc_port_proxy_h proxy,
                                         rpc_port_proxy_received_event_cb cb, void *user_data) {
  return add_callback(proxy, &RpcPortProxy::received, cb, user_data);
}

int rpc_port_proxy_connect(rpc_port_proxy_h proxy, const char *app_id, const char *port_name) {
  return connect(proxy, app_id, port_name, &RpcPortProxy::await_answer);
}

int rpc_port_proxy_connect_sync(rpc_port_proxy_h proxy, const char *app_id, const char *port_name) {
  return connect(proxy, app_id, port_name, &RpcPortProxy::await_answer_here);
}

int rpc_port_proxy_get_port(rpc_port_proxy_h proxy, int type, rpc_port_h *port) {
  if (proxy == nullptr || port == nullptr || (type != 0 && type != 1)) return -EINVAL;
  rpc_port_s *found = proxy->proxy->port(static_cast<Port>(type));
  if (found == nullptr) return -ENOTCONN;
  *port = found;
  return 0;
}

int rpc_port_parcel_create_from_port(rpc_port_parcel_h *parcel, rpc_port_h port) {
  return guarded([=] {
    if (parcel == nullptr || port == nullptr) return -EINVAL;
    auto frame = port->proxy->read(*port);
    if (!frame) return -EIO;
    *parcel = new rpc_port_parcel_s{Parcel(std::move(*frame))};
    return 0;
  });
}

int rpc_port_parcel_send(rpc_port_parcel_h parcel, rpc_port_h port) {
  return guarded([=] {
    if (parcel == nullptr || port == nullptr) return -EINVAL;
    return port->proxy->send(*port, parcel->parcel.bytes());
  });
}
