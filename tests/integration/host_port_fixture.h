/** Peers of an RPC port, and the bytes that they send. */
#ifndef KORVANE_TESTS_HOST_PORT_FIXTURE_H_
#define KORVANE_TESTS_HOST_PORT_FIXTURE_H_

#include <string>
#include <utility>

#include "host_fixture.h"
#include "ports/rpc_port_handles.h"
#include "ports/rpc_port_protocol.h"
#include "sockets/local_socket.h"

namespace korvane::host {

/** Much longer than any step takes, in milliseconds. */
constexpr int kHangLimit = 60000;

inline const Bytes kOversized = {1, 0, 0x80, 0};
inline const Bytes kHalfFrame = {9, 0, 0, 0, 1};

inline Bytes framed(const Bytes &payload) {
  Bytes stream;
  append_frame(stream, payload);
  return stream;
}
inline Bytes hello(Port port, const std::string &token = "token", const std::string &app = "app") {
  return framed(Hello{port, token, app}.encode().bytes());
}
inline Bytes answer(std::int32_t verdict) {
  Parcel parcel;
  parcel.write_int32(verdict);
  return framed(parcel.bytes());
}
inline Bytes text_frame(const std::string &text) {
  Parcel parcel;
  parcel.write_string(text);
  return framed(parcel.bytes());
}

/** The path of the port that all tests use. */
inline std::string socket_path() {
  return rpc_socket_path(Device::current(), "svc", "port").string();
}

inline void put(const UniqueFd &socket, const Bytes &bytes) {
  ASSERT_EQ(write_all(socket.get(), bytes, kHangLimit), 0);
}

/** Whether the peer has closed the connection; what it sent before is skipped. */
inline bool at_end(const UniqueFd &socket) {
  FrameReader skipped;
  ReadState state = ReadState::kData;
  while (state == ReadState::kData) state = read_available(socket.get(), skipped);
  return state == ReadState::kEnd;
}

/** A client of the port, which logs its events. */
class Client {
 public:
  Client() {
    const auto connected = [](auto, auto, auto, void *self) { report(self, "connected"); };
    const auto disconnected = [](auto, auto, void *self) { report(self, "disconnected"); };
    const auto rejected = [](auto, auto, void *self) { report(self, "rejected"); };
    rpc_port_proxy_create(&proxy_);
    rpc_port_proxy_add_connected_event_cb(proxy_, connected, this);
    rpc_port_proxy_add_disconnected_event_cb(proxy_, disconnected, this);
    rpc_port_proxy_add_rejected_event_cb(proxy_, rejected, this);
    rpc_port_proxy_add_received_event_cb(proxy_, on_received, this);
  }
  Client(const Client &) = delete;
  Client &operator=(const Client &) = delete;
  ~Client() { destroy(); }

  void destroy() {
    if (proxy_ != nullptr) rpc_port_proxy_destroy(std::exchange(proxy_, nullptr));
  }
  int connect(const char *app = "svc") { return rpc_port_proxy_connect(proxy_, app, "port"); }
  int connect_sync() { return rpc_port_proxy_connect_sync(proxy_, "svc", "port"); }
  /** A port of the connection; null without one. */
  rpc_port_h port(Port which) {
    rpc_port_h found = nullptr;
    rpc_port_proxy_get_port(proxy_, static_cast<int>(which), &found);
    return found;
  }
  static int read(rpc_port_h port, std::string *text = nullptr) {
    rpc_port_parcel_h parcel = nullptr;
    const int error = rpc_port_parcel_create_from_port(&parcel, port);
    if (error != 0) return error;
    if (text != nullptr) AllocationFault::in_test([&] { parcel->parcel.read_string(*text); });
    return rpc_port_parcel_destroy(parcel);
  }
  static int send(rpc_port_h port, const std::string &text) {
    rpc_port_parcel_h parcel = nullptr;
    if (const int error = rpc_port_parcel_create(&parcel)) return error;
    rpc_port_parcel_write_string(parcel, text.c_str());
    const int error = rpc_port_parcel_send(parcel, port);
    rpc_port_parcel_destroy(parcel);
    return error;
  }

  std::vector<std::string> log;
  std::string destroyer;  ///< the event, if any, that destroys the proxy

 private:
  static void on_received(const char *, const char *, void *self) {
    std::string text;
    if (read(static_cast<Client *>(self)->port(Port::kCallback), &text) != 0) return;
    AllocationFault::in_test([&] { report(self, "received " + std::to_string(text.size())); });
  }
  static void report(void *user_data, const std::string &event) {
    auto &self = *static_cast<Client *>(user_data);
    AllocationFault::in_test([&] { self.log.push_back(event); });
    if (event == self.destroyer) self.destroy();
  }

  rpc_port_proxy_h proxy_ = nullptr;
};

/** Clients of a server that the test plays. */
class HostClientTest : public HostTest {
 protected:
  /** Accepts the two sockets of a client and reads their hellos. */
  void greet() {
    for (UniqueFd *peer : {&main_, &callback_}) {
      *peer = accept_peer(listener_.get());
      FrameReader greeting;
      ASSERT_TRUE(read_frame(peer->get(), greeting, kHangLimit));
    }
  }
  void open(Client &client) {
    ASSERT_EQ(client.connect(), 0);
    greet();
    put(main_, answer(kAccepted));
    run_idle();
    ASSERT_EQ(client.log, Log{"connected"});
  }

  UniqueFd listener_ = listen_at(socket_path());
  UniqueFd main_, callback_;  ///< the server's ends
};

}  // namespace korvane::host

#endif  // KORVANE_TESTS_HOST_PORT_FIXTURE_H_
