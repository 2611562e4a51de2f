// Both ends of an RPC port against peers that keep to no rule.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <future>

#include "app_event.h"
#include "event_publisher.h"
#include "host_fixture.h"
#include "local_socket.h"
#include "rpc_port_handles.h"
#include "rpc_port_server.h"

using namespace korvane::host;

namespace {

const Bytes kOversized = {0xFF, 0xFF, 0xFF, 0x7F};
const Bytes kHalfFrame = {9, 0, 0, 0, 1};

Bytes framed(const Bytes &payload) {
  Bytes stream;
  append_frame(stream, payload);
  return stream;
}

Bytes answer(std::int32_t verdict) {
  Parcel parcel;
  parcel.write_int32(verdict);
  return framed(parcel.bytes());
}

Bytes hello(Port port, const std::string &token = "token") {
  return framed(Hello{port, token, "app"}.encode().bytes());
}

std::string socket_path() {
  return rpc_socket_path(Device::current(), "svc", "port").string();
}

void put(const UniqueFd &socket, const Bytes &bytes) {
  ASSERT_EQ(write_all(socket.get(), bytes, 10000), 0);
}

/** A proxy and what it reports; destroyed by the event that is named, if any. */
class Client {
 public:
  explicit Client(std::string destroyer = "") : destroyer_(std::move(destroyer)) {
    rpc_port_proxy_create(&proxy_);
    for (int i = 0; i < 2; ++i) {  // the second time counts: it is told nothing after the end
      rpc_port_proxy_add_connected_event_cb(
          proxy_,
          [](const char *, const char *, rpc_port_h, void *self) { report(self, "connected"); },
          this);
      rpc_port_proxy_add_disconnected_event_cb(proxy_, event<'d'>, this);
      rpc_port_proxy_add_rejected_event_cb(proxy_, event<'j'>, this);
      rpc_port_proxy_add_received_event_cb(proxy_, event<'r'>, this);
    }
  }
  Client(const Client &) = delete;
  Client &operator=(const Client &) = delete;
  ~Client() { destroy(); }

  void destroy() {
    if (proxy_ != nullptr) rpc_port_proxy_destroy(std::exchange(proxy_, nullptr));
  }
  int connect(bool sync = false, const char *app = "svc", const char *port = "port") {
    return (sync ? rpc_port_proxy_connect_sync : rpc_port_proxy_connect)(proxy_, app, port);
  }
  rpc_port_h port(int type) {
    rpc_port_h port = nullptr;
    rpc_port_proxy_get_port(proxy_, type, &port);
    return port;
  }
  static int read(rpc_port_h port, std::string *text = nullptr) {
    rpc_port_parcel_h parcel = nullptr;
    const int error = rpc_port_parcel_create_from_port(&parcel, port);
    if (error != 0) return error;
    if (text != nullptr) parcel->parcel.read_string(*text);
    return rpc_port_parcel_destroy(parcel);
  }
  static int send(rpc_port_h port, const std::string &text) {
    rpc_port_parcel_s parcel;
    parcel.parcel.write_string(text);
    return rpc_port_parcel_send(&parcel, port);
  }

  std::vector<std::string> log;

 private:
  template <char kind>
  static void event(const char *, const char *, void *self) {
    report(self, kind == 'd' ? "disconnected" : kind == 'j' ? "rejected" : "received");
  }
  static void report(void *user_data, const std::string &what) {
    auto &self = *static_cast<Client *>(user_data);
    if (self.proxy_ == nullptr) self.log.push_back("after the end: " + what);
    self.first_ = !self.first_;
    if (self.proxy_ == nullptr || !self.first_) return;
    std::string text;
    if (what == "received") {
      text = read(self.port(1), &text) == 0 ? " " + std::to_string(text.size()) : " nothing";
    }
    self.log.push_back(what + text);
    if (what == self.destroyer_) self.destroy();
  }

  rpc_port_proxy_h proxy_ = nullptr;
  const std::string destroyer_;
  bool first_ = false;
};

Bytes text_frame(const std::string &text) {
  Parcel parcel;
  parcel.write_string(text);
  return framed(parcel.bytes());
}

class HostPortTest : public HostTest {
 protected:
  /** Connects to a peer that is greeted and then does its part; serves what comes of it. */
  template <typename Part>
  void connect(Client &client, bool sync, Part part, bool leave_at_once = false) {
    const UniqueFd listener = listen_at(socket_path());
    auto peer = std::async(std::launch::async, [&] {
      for (UniqueFd &socket : peers_) {
        pollfd entry = {listener.get(), POLLIN, 0};
        ASSERT_EQ(poll(&entry, 1, 10000), 1);
        socket = accept_peer(listener.get());
        FrameReader greeting;
        ASSERT_TRUE(read_frame(socket.get(), greeting, 10000));
      }
      part();
    });
    ASSERT_EQ(client.connect(sync), 0);
    if (leave_at_once) client.destroy();
    peer.get();
    run_idle();
  }
  void open(Client &client) {
    connect(client, false, [this] { put(peers_[0], answer(kAccepted)); });
    ASSERT_EQ(client.log, Log{"connected"});
  }

  UniqueFd peers_[2];  ///< main, callback
};

/** What a faulty peer does on one of its sockets. */
struct Fault {
  const char *name;
  int port;
  Bytes bytes;
  bool close;

  void commit(UniqueFd (&sockets)[2]) const {
    put(sockets[port], bytes);
    if (close) sockets[port].reset();
  }
};

const Fault kFaults[] = {{"main ends", 0, {}, true},
                         {"callback ends", 1, {}, true},
                         {"half, main ends", 0, kHalfFrame, true},
                         {"half, callback ends", 1, kHalfFrame, true},
                         {"main oversized", 0, kOversized, false},
                         {"callback oversized", 1, kOversized, false}};

TEST_F(HostPortTest, ClientIsRejectedOnceByAFaultyAnswer) {
  const Fault faults[] = {{"end", 0, {}, true},
                          {"half a frame, end", 0, kHalfFrame, true},
                          {"oversized", 0, kOversized, false},
                          {"short answer", 0, framed({1, 2}), false},
                          {"empty answer", 0, framed({}), false},
                          {"unknown verdict", 0, answer(7), false},
                          {"rejection", 0, answer(kRejected), false}};
  for (const Fault &fault : faults) {
    for (const bool sync : {false, true}) {
      SCOPED_TRACE(fault.name);
      Client client;
      connect(client, sync, [&] { fault.commit(peers_); });
      EXPECT_EQ(client.log, Log{"rejected"});
      EXPECT_EQ(client.port(0), nullptr);
    }
  }
}

TEST_F(HostPortTest, ClientLosesTheConnectionOnceByAFaultAfterTheParcelsBeforeIt) {
  for (const Fault &fault : kFaults) {
    for (const int reader : {-1, 0, 1}) {  // the port that is read meanwhile, if any
      // Rubbish is noticed by whoever reads the port: the loop, for the callback port.
      if (!fault.close && reader != fault.port && (reader >= 0 || fault.port == 0)) continue;
      for (const std::size_t size : {0U, 1U, 40000U}) {  // of the parcels before it, if any
        if (reader == 1 && size > 0) continue;
        SCOPED_TRACE(fault.name);
        Client client;
        open(client);
        rpc_port_h ports[] = {client.port(0), client.port(1)};
        Log expected(size > 0 ? 4 : 1, "received " + std::to_string(size));
        for (std::size_t i = 1; i < expected.size(); ++i) {
          put(peers_[1], text_frame(std::string(size, 'x')));
        }
        fault.commit(peers_);
        if (reader >= 0) {
          EXPECT_NE(Client::read(ports[reader]), 0);
        }
        run_idle();
        expected.front() = "connected";
        expected.push_back("disconnected");
        EXPECT_EQ(client.log, expected);
        for (rpc_port_h port : ports) {
          EXPECT_NE(Client::read(port), 0);
          EXPECT_NE(Client::send(port, "x"), 0);
        }
      }
    }
  }
}

TEST_F(HostPortTest, NoEventAfterDestroy) {
  const std::pair<std::string, Log> cases[] = {
      {"while connecting", {}},
      {"rejected", {"rejected"}},
      {"connected", {"connected"}},
      {"received", {"connected", "received 1"}},
      {"disconnected", {"connected", "received 1", "received 1", "disconnected"}}};
  for (const auto &[destroyer, expected] : cases) {
    for (const bool sync : {false, true}) {
      SCOPED_TRACE(destroyer);
      if (expected.empty() && sync) continue;  // there is no moment while it is connecting
      Client client(destroyer);
      const std::int32_t verdict = destroyer == "rejected" ? kRejected : kAccepted;
      const auto part = [&] {  // the client may be gone before it was told anything
        for (int i = 0; i < 2; ++i) write_all(peers_[1].get(), text_frame("x"), 10000);
        write_all(peers_[0].get(), answer(verdict), 10000);
        for (UniqueFd &peer : peers_) peer.reset();
      };
      connect(client, sync, part, expected.empty());
      EXPECT_EQ(client.log, expected);
    }
  }
}

TEST_F(HostPortTest, ConnectFailsAtOnce) {
  const std::string valid = device_;
  const char *const bad_names[] = {"", ".", "..", "a/b", "/port", nullptr};
  listen_at(rpc_socket_path(Device::current(), "dead", "port"));  // closed, its file stays
  Client client;
  for (const bool sync : {false, true}) {
    for (const char *name : bad_names) {
      EXPECT_EQ(client.connect(sync, name), -EINVAL) << testing::PrintToString(name);
      EXPECT_EQ(client.connect(sync, "svc", name), -EINVAL) << testing::PrintToString(name);
    }
    EXPECT_EQ(client.connect(sync, "dead"), -EIO);
    for (const std::string &device : {valid + "/missing", std::string(), valid}) {
      setenv("KORVANE_DEVICE", device.c_str(), 1);
      EXPECT_EQ(client.connect(sync), -EIO) << device;
    }
  }
  run_idle();
  EXPECT_EQ(client.log, Log{});
  open(client);  // none of the failures was final
  EXPECT_NE(client.connect(), 0);
}

class HostServerTest : public HostTest {
 protected:
  HostServerTest()
      : server_(loop(), "svc", "port",
                {[](const RpcPortServer::Peer &peer) { return peer.app_id != "refused"; },
                 [this](auto id, const auto &) {
                   last_ = id;
                   log_.push_back("connected");
                 },
                 [this](auto) { log_.push_back("disconnected"); },
                 [this](auto, Parcel parcel) {
                   std::string text;
                   log_.push_back(parcel.read_string(text) ? "received " + text : "rubbish");
                 }}) {}

  static bool at_end(const UniqueFd &socket) {
    FrameReader reader;
    return read_available(socket.get(), reader) == ReadState::kEnd;
  }
  /** Makes a whole connection by hand. */
  void open(UniqueFd (&sockets)[2]) {
    for (const Port port : {Port::kMain, Port::kCallback}) {
      UniqueFd &socket = sockets[static_cast<int>(port)];
      socket = connect_to(socket_path());
      put(socket, hello(port));
    }
    run_idle();
  }

  Log log_;
  RpcPortServer::ConnectionId last_ = 0;
  RpcPortServer server_;
};

TEST_F(HostServerTest, TurnsFaultyGreetingsAway) {
  Parcel wrong_magic;
  wrong_magic.write_int32(1);
  struct {
    const char *name;
    Bytes first, second;
    bool turned_away;
  } const cases[] = {{"rubbish", framed({1, 2, 3}), {}, true},
                     {"empty", framed({}), {}, true},
                     {"magic", framed(wrong_magic.bytes()), {}, true},
                     {"no such port", hello(static_cast<Port>(2)), hello(Port::kMain), true},
                     {"oversized", kOversized, {}, true},
                     {"half", kHalfFrame, {}, false},
                     {"no counterpart", hello(Port::kMain), {}, false},
                     {"two main ports", hello(Port::kMain), hello(Port::kMain), false},
                     {"two tokens", hello(Port::kMain), hello(Port::kCallback, "other"), false}};
  for (const auto &entry : cases) {
    SCOPED_TRACE(entry.name);
    UniqueFd peers[] = {connect_to(socket_path()), connect_to(socket_path())};
    put(peers[0], entry.first);
    put(peers[1], entry.second);
    run_idle();
    EXPECT_EQ(at_end(peers[0]), entry.turned_away);
    EXPECT_FALSE(at_end(peers[1]));
    for (UniqueFd &peer : peers) peer.reset();
    run_idle();
    EXPECT_EQ(log_, Log{});
    UniqueFd proper[2];
    open(proper);
    EXPECT_EQ(log_, Log{"connected"});
    server_.disconnect(last_);
    log_.clear();
  }
}

TEST_F(HostServerTest, TurnsPeersAwayThatNeverSayWhoTheyAre) {
  const RpcPortServer impatient(loop(), "svc", "other", {}, std::chrono::milliseconds(1));
  const auto path = rpc_socket_path(Device::current(), "svc", "other");
  const UniqueFd silent = connect_to(path);
  const UniqueFd without_counterpart = connect_to(path);
  put(without_counterpart, hello(Port::kMain));
  while (!at_end(silent) || !at_end(without_counterpart)) loop().step(1);
}

TEST_F(HostServerTest, DropsAFaultyClientOnceAfterItsParcels) {
  for (const Fault &fault : kFaults) {
    SCOPED_TRACE(fault.name);
    UniqueFd sockets[2];
    open(sockets);
    put(sockets[0], text_frame("a"));
    put(sockets[0], framed({}));
    fault.commit(sockets);
    run_idle();
    EXPECT_EQ(log_, (Log{"connected", "received a", "rubbish", "disconnected"}));
    EXPECT_TRUE(server_.connections().empty());
    server_.send(last_, Port::kMain, Parcel());
    log_.clear();
  }
}

TEST_F(HostServerTest, EventsBeforeADropAreDeliveredBeforeIt) {
  struct Subscriber {
    Log &log;
    std::function<void()> then;

    static void on_event(const char *, bundle_h, void *user_data) {
      auto &self = *static_cast<Subscriber *>(user_data);
      self.log.push_back("event");
      if (const auto then = std::exchange(self.then, nullptr)) then();
    }
  };
  for (const std::size_t count : {1U, 3U}) {
    for (const bool while_one_is_delivered : {false, true}) {
      Client client;
      ASSERT_EQ(client.connect(), 0);
      run_idle();
      const auto send_and_drop = [&] {
        for (std::size_t i = 0; i < count; ++i) publish_event("a", EventBundle());
        server_.disconnect(last_);
      };
      Subscriber subscriber{client.log, send_and_drop};
      event_handler_h handler = nullptr;
      ASSERT_EQ(event_add_event_handler("a", Subscriber::on_event, &subscriber, &handler), 0);
      if (while_one_is_delivered) {
        publish_event("a", EventBundle());
      } else {
        std::exchange(subscriber.then, nullptr)();
      }
      run_idle();
      event_remove_event_handler(handler);
      Log expected(1 + count + (while_one_is_delivered ? 1 : 0), "event");
      expected.front() = "connected";
      expected.push_back("disconnected");
      EXPECT_EQ(client.log, expected);
    }
  }
}

/** Connects as another user; what connects of the platform itself would see that it must not. */
UniqueFd connect_as(uid_t user, const std::string &path) {
  sockaddr_un address = {AF_UNIX, ""};
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  UniqueFd result(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0));
  EXPECT_EQ(seteuid(user), 0);
  const auto *target = reinterpret_cast<const sockaddr *>(&address);
  EXPECT_EQ(connect(result.get(), target, sizeof(address)), 0) << path;
  if (user != 0) {
    EXPECT_THROW(connect_to(path), std::system_error);
  }
  EXPECT_EQ(seteuid(0), 0);
  return result;
}

TEST_F(HostServerTest, ForeignUserIsTurnedAway) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  const std::string path = socket_path();
  for (std::filesystem::path part = path; part != device_.parent_path();) {
    permissions(part, std::filesystem::perms::all);
    part = part.parent_path();
  }
  for (const uid_t user : {uid_t{65534}, uid_t{0}}) {
    const UniqueFd peers[] = {connect_as(user, path), connect_as(user, path)};
    for (const int port : {0, 1}) put(peers[port], hello(static_cast<Port>(port)));
    run_idle();
    EXPECT_EQ(at_end(peers[0]), user != 0);
    EXPECT_EQ(log_, user == 0 ? Log{"connected"} : Log{});
  }
}

}  // namespace
