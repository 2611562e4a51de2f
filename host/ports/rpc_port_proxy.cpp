// The client side of RPC ports.
#include <sys/epoll.h>
#include <sys/random.h>
#include <sys/socket.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <vector>

#include "guard.h"
#include "loop/main_loop.h"
#include "ports/rpc_port_handles.h"
#include "ports/rpc_port_protocol.h"
#include "process.h"
#include "sockets/local_socket.h"
#include "sockets/wait_limits.h"

using korvane::host::guarded;
using korvane::host::Port;
using korvane::host::RpcPortProxy;

namespace korvane::host {

namespace {

constexpr int kNoLimit = -1;

[[noreturn]] void fail(int error, const char *what) {
  throw std::system_error(error, std::generic_category(), what);
}

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
 * While it is made, the loop awaits the answer on the main port. Then it watches that port for
 * hang-up only, since its parcels are taken by whoever waits for a reply, and collects what
 * arrives on the callback port. A child made by fork has no part in the connection.
 */
class RpcPortProxy : public std::enable_shared_from_this<RpcPortProxy> {
 public:
  RpcPortProxy() { main_.proxy = callback_.proxy = this; }

  Registrations<rpc_port_proxy_connected_event_cb> connected;
  Registrations<rpc_port_proxy_disconnected_event_cb> disconnected;
  Registrations<rpc_port_proxy_rejected_event_cb> rejected;
  Registrations<rpc_port_proxy_received_event_cb> received;

  /** Registers a callback. One that could not be is not left out of what happens later. */
  template <typename Callback>
  void add(Registrations<Callback> RpcPortProxy::*registrations, Callback callback,
           void *user_data) {
    const bool was_deaf = std::exchange(deaf_, true);
    (this->*registrations).push_back({callback, user_data});
    deaf_ = was_deaf;
  }

  /**
   * Opens both sockets, says hello and has the answer awaited, for which no memory is needed any
   * more. Throws, and then is as before.
   */
  void open(const char *app_id, const char *port_name) {
    if (deaf_ || !mark_.is_ours() || state_ != State::kIdle) fail(EALREADY, "connect");
    try {
      say_hello(app_id, port_name);
      main_.reader.room();
      main_source_ = watch(main_, EPOLLIN, &RpcPortProxy::main_is_ready);
      callback_source_ = watch(callback_, EPOLLRDHUP, &RpcPortProxy::callback_is_ready);
      state_ = State::kConnecting;
    } catch (...) {
      stop_watching();
      main_.socket.reset();
      callback_.socket.reset();
      throw;
    }
  }

  void await_answer_here() {
    try {
      await_frame(main_.socket.get(), main_.reader, limits.answer, callback_.socket.get());
      answered();
    } catch (...) {
      end();
      throw;
    }
  }

  rpc_port_s *port(Port which) {
    if (state_ != State::kConnected) return nullptr;
    return which == Port::kMain ? &main_ : &callback_;
  }

  /**
   * The next parcel of a port; null when the connection is lost, which the loop will report. What
   * the callback port collected before can be read until then.
   */
  std::unique_ptr<rpc_port_parcel_s> read(rpc_port_s &from) {
    return &from == &main_ ? read_reply() : read_collected();
  }

  bool send(rpc_port_s &to, const Bytes &payload) {
    if (is_over()) return false;
    const int error = write_frame(to.socket.get(), payload, limits.send_stall);
    if (error != 0 && error != EMSGSIZE) give_up();
    return error == 0;
  }

  /** Ends everything; no event is delivered any more. */
  void destroy() {
    destroyed_ = true;
    stop_watching();
    break_connection();
  }

 private:
  enum class State { kIdle, kConnecting, kConnected, kEnded };

  void say_hello(const char *app_id, const char *port_name) {
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
      const int error = write_frame(port->socket.get(), hello.encode().bytes(), limits.send_stall);
      if (error != 0) fail(error, "hello");
    }
  }

  MainLoop::SourceId watch(const rpc_port_s &port, std::uint32_t epoll_events,
                           void (RpcPortProxy::*handle)()) {
    return MainLoop::instance().add_descriptor(port.socket.get(), epoll_events,
                                               [weak = weak_from_this(), handle](std::uint32_t) {
                                                 if (const auto self = weak.lock())
                                                   (*self.*handle)();
                                               });
  }

  void stop_watching() {
    for (MainLoop::SourceId *source : {&main_source_, &callback_source_}) {
      if (*source != 0 && mark_.is_ours()) MainLoop::instance().remove(*source);
      *source = 0;
    }
  }

  bool is_over() const { return broken_ || !mark_.is_ours(); }

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
      if (port->socket && mark_.is_ours()) shutdown(port->socket.get(), SHUT_RDWR);
    }
  }

  /** A reply that there is no memory for is not taken for the reply to the next request. */
  std::unique_ptr<rpc_port_parcel_s> read_reply() {
    if (is_over()) return nullptr;
    try {
      if (await_frame(main_.socket.get(), main_.reader, kNoLimit, callback_.socket.get())) {
        return take_parcel(main_.reader);
      }
    } catch (const std::bad_alloc &) {
      if (main_.reader.has_frame()) {
        main_.reader.drop();
      } else {
        give_up();
      }
      throw;
    }
    give_up();
    return nullptr;
  }

  /** A parcel that there is no memory for is told of again. */
  std::unique_ptr<rpc_port_parcel_s> read_collected() {
    if (is_over() && !callback_.reader.has_frame()) return nullptr;
    if (announced_ > 0) --announced_;
    try {
      if (await_frame(callback_.socket.get(), callback_.reader, kNoLimit, main_.socket.get())) {
        return take_parcel(callback_.reader);
      }
    } catch (const std::bad_alloc &) {
      short_of_memory_ = true;
      throw;
    }
    give_up();
    return nullptr;
  }

  static std::unique_ptr<rpc_port_parcel_s> take_parcel(FrameReader &reader) {
    auto parcel = std::make_unique<rpc_port_parcel_s>();
    parcel->parcel = Parcel(*reader.next());
    return parcel;
  }

  void main_is_ready() {
    if (state_ != State::kConnecting) {
      lost();
    } else if (read_available(main_.socket.get(), main_.reader) == ReadState::kEnd ||
               main_.reader.has_frame()) {
      answered();
    }
  }

  void callback_is_ready() {
    if (state_ != State::kConnecting) {
      receive();
      return;
    }
    // The peer has gone, perhaps with an answer before that.
    read_available(main_.socket.get(), main_.reader);
    answered();
  }

  /** Decides by the answer that has come, if any. */
  void answered() {
    std::int32_t verdict = kRejected;
    if (auto answer = main_.reader.next()) Parcel(std::move(*answer)).read_int32(verdict);
    if (verdict != kAccepted) {
      end();
      deliver(rejected);
      return;
    }
    state_ = State::kConnected;
    MainLoop::instance().change_events(main_source_, EPOLLRDHUP);
    MainLoop::instance().change_events(callback_source_, EPOLLIN | EPOLLRDHUP);
    deliver(connected, &main_);
  }

  void end() {
    state_ = State::kEnded;
    stop_watching();
    break_connection();
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
    end();
    deliver(disconnected);
  }

  void deliver_received() {
    while (!destroyed_ && announced_ < callback_.reader.frame_count()) {
      ++announced_;
      deliver(received);
      if (std::exchange(short_of_memory_, false)) throw std::bad_alloc();
    }
  }

  /**
   * Calls those that are registered now: a callback may register others, or destroy the proxy,
   * which whoever has come here keeps alive.
   */
  template <typename Callback, typename... Arguments>
  void deliver(const Registrations<Callback> &registrations, Arguments... arguments) {
    const std::size_t count = registrations.size();
    for (std::size_t i = 0; i < count && !destroyed_; ++i) {
      const Registration<Callback> registration = registrations[i];
      registration.callback(endpoint_.c_str(), port_name_.c_str(), arguments...,
                            registration.user_data);
    }
  }

  const ProcessMark mark_;
  State state_ = State::kIdle;
  bool deaf_ = false;  ///< a registration failed: there is somebody who would not be told
  bool destroyed_ = false;
  std::atomic<bool> broken_{false};
  std::string endpoint_;
  std::string port_name_;
  rpc_port_s main_;
  rpc_port_s callback_;
  std::size_t announced_ = 0;     ///< frames on the callback port that were told of and not taken
  bool short_of_memory_ = false;  ///< so that a frame that was told of could not be taken
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
    proxy->proxy->add(registrations, callback, user_data);
    return 0;
  });
}

int connect(rpc_port_proxy_h proxy, const char *app_id, const char *port_name, bool sync) {
  return guarded([=] {
    if (proxy == nullptr || app_id == nullptr || port_name == nullptr) return -EINVAL;
    const auto keep_alive = proxy->proxy;
    keep_alive->open(app_id, port_name);
    if (sync) keep_alive->await_answer_here();
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
  return connect(proxy, app_id, port_name, false);
}

int rpc_port_proxy_connect_sync(rpc_port_proxy_h proxy, const char *app_id, const char *port_name) {
  return connect(proxy, app_id, port_name, true);
}

int rpc_port_proxy_get_port(rpc_port_proxy_h proxy, int type, rpc_port_h *port) {
  if (proxy == nullptr || port == nullptr || (type != 0 && type != 1)) return -EINVAL;
  rpc_port_s *found = proxy->proxy->port(static_cast<Port>(type));
  if (found == nullptr) return -EIO;
  *port = found;
  return 0;
}

int rpc_port_parcel_create_from_port(rpc_port_parcel_h *parcel, rpc_port_h port) {
  return guarded([=] {
    if (parcel == nullptr || port == nullptr) return -EINVAL;
    auto read = port->proxy->read(*port);
    if (!read) return -EIO;
    *parcel = read.release();
    return 0;
  });
}

int rpc_port_parcel_send(rpc_port_parcel_h parcel, rpc_port_h port) {
  if (parcel == nullptr || port == nullptr) return -EINVAL;
  const bool sent = !parcel->write_failed && port->proxy->send(*port, parcel->parcel.bytes());
  return sent ? 0 : -EIO;
}
