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
#include "loop/scoped_source.h"
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
 * While connecting, the loop waits for the answer on the main port. Afterwards it watches that port
 * for hang-up only, since the caller that waits for a reply reads its parcels. The loop reads the
 * callback port. A child made by fork does not use or close the connection of its parent.
 */
class RpcPortProxy : public std::enable_shared_from_this<RpcPortProxy> {
 public:
  RpcPortProxy() { main_.proxy = callback_.proxy = this; }

  Registrations<rpc_port_proxy_connected_event_cb> connected;
  Registrations<rpc_port_proxy_disconnected_event_cb> disconnected;
  Registrations<rpc_port_proxy_rejected_event_cb> rejected;
  Registrations<rpc_port_proxy_received_event_cb> received;

  /**
   * Opens both sockets, sends the hellos and waits for the answer in the loop. On an exception the
   * object is unchanged.
   */
  void open(const char *app_id, const char *port_name) {
    if (!mark_.is_ours() || state_ != State::kIdle) fail(EALREADY, "connect");
    try {
      say_hello(app_id, port_name);
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
   * The next parcel of a port; null when the connection is lost, which the loop will report.
   * Parcels that the callback port has already received can still be read then. Throws
   * std::bad_alloc and ends the connection, so that a later parcel is not taken for this one.
   */
  std::unique_ptr<rpc_port_parcel_s> read(rpc_port_s &from) {
    const bool is_main = &from == &main_;
    if (is_over() && (is_main || !from.reader.has_frame())) return nullptr;
    try {
      const rpc_port_s &other = is_main ? callback_ : main_;
      if (await_frame(from.socket.get(), from.reader, kNoLimit, other.socket.get())) {
        auto parcel = std::make_unique<rpc_port_parcel_s>();
        parcel->parcel = Parcel(*from.reader.next());
        return parcel;
      }
    } catch (const std::bad_alloc &) {
      give_up();
      throw;
    }
    give_up();
    return nullptr;
  }

  bool send(rpc_port_s &to, const Bytes &payload) {
    if (is_over()) return false;
    const int error = write_frame(to.socket.get(), payload, limits.send_stall);
    if (error != 0 && error != EMSGSIZE) give_up();
    return error == 0;
  }

  /** Ends the connection. No event is delivered afterwards. */
  void destroy() {
    destroyed_ = true;
    end();
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

  ScopedSource watch(const rpc_port_s &port, std::uint32_t epoll_events,
                     void (RpcPortProxy::*handle)()) {
    return ScopedSource(MainLoop::instance(), port.socket.get(), epoll_events,
                        [weak = weak_from_this(), handle](std::uint32_t) {
                          if (const auto self = weak.lock()) self->serve(handle);
                        });
  }

  void stop_watching() {
    main_source_.reset();
    callback_source_.reset();
  }

  /** An exception of a handler ends the connection. */
  void serve(void (RpcPortProxy::*handle)()) {
    const int error = guarded([&] {
      (this->*handle)();
      return 0;
    });
    if (error != 0) report_end();
  }

  bool is_over() const { return broken_ || !mark_.is_ours(); }

  /**
   * Stops reading and sending. When the peer has closed its side, this side stays open until the
   * application closes it: the peer may wait for that before it announces that it is back.
   */
  void give_up() {
    broken_ = true;
    if (!peer_has_ended(main_.socket.get()) && !peer_has_ended(callback_.socket.get())) {
      break_connection();
    }
  }

  /** Shuts the connection down for both ends. */
  void break_connection() {
    broken_ = true;
    for (const rpc_port_s *port : {&main_, &callback_}) {
      if (port->socket && mark_.is_ours()) shutdown(port->socket.get(), SHUT_RDWR);
    }
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
    // The peer has closed the connection, possibly after it answered.
    read_available(main_.socket.get(), main_.reader);
    answered();
  }

  /** Accepts or rejects the connection, depending on the answer. No answer is a rejection. */
  void answered() {
    std::int32_t verdict = kRejected;
    if (auto answer = main_.reader.next()) Parcel(std::move(*answer)).read_int32(verdict);
    if (verdict != kAccepted) {
      report_end();
      return;
    }
    state_ = State::kConnected;
    main_source_.change_events(EPOLLRDHUP);
    callback_source_.change_events(EPOLLIN | EPOLLRDHUP);
    deliver(connected, &main_);
  }

  /** Ends the connection and reports it once. Does not allocate. */
  void report_end() {
    const State before = state_;
    end();
    if (before == State::kConnecting) deliver(rejected);
    if (before == State::kConnected) deliver(disconnected);
  }

  void end() {
    state_ = State::kEnded;
    stop_watching();
    break_connection();
  }

  void receive() {
    const ReadState read = read_available(callback_.socket.get(), callback_.reader);
    deliver_received();
    if (read == ReadState::kEnd || callback_.reader.broken()) lost();
  }

  /** Delivers the remaining parcels before it reports the end. */
  void lost() {
    ReadState read = ReadState::kData;
    while (state_ == State::kConnected && read == ReadState::kData) {
      read = read_available(callback_.socket.get(), callback_.reader);
      deliver_received();
    }
    report_end();
  }

  /** A parcel that the application did not read is reported again with the next one. */
  void deliver_received() {
    bool is_read = true;
    while (state_ == State::kConnected && is_read && callback_.reader.has_frame()) {
      const std::size_t before = callback_.reader.size();
      deliver(received);
      is_read = callback_.reader.size() != before;
    }
  }

  /**
   * Calls the callbacks registered at this moment. A callback may register others or destroy the
   * proxy; the caller keeps the proxy alive.
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
  bool destroyed_ = false;
  std::atomic<bool> broken_{false};
  std::string endpoint_;
  std::string port_name_;
  rpc_port_s main_;
  rpc_port_s callback_;
  ScopedSource main_source_;
  ScopedSource callback_source_;
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
    ((*proxy->proxy).*registrations).push_back({callback, user_data});
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
  return guarded([=] {
    if (parcel == nullptr || port == nullptr) return -EINVAL;
    const bool sent = !parcel->write_failed && port->proxy->send(*port, parcel->parcel.bytes());
    return sent ? 0 : -EIO;
  });
}
