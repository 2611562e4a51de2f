// Both ends of an RPC port against peers that keep to no rule.
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <algorithm>
#include <future>

#include "event_publisher.h"
#include "host_fixture.h"
#include "local_socket.h"
#include "rpc_port.h"
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
    char *value = nullptr;
    if (rpc_port_parcel_read_string(parcel, &value) == 0 && text != nullptr) *text = value;
    free(value);
    return rpc_port_parcel_destroy(parcel);
  }
  static int send(rpc_port_h port, const std::string &text) {
    rpc_port_parcel_h parcel = nullptr;
    rpc_port_parcel_create(&parcel);
    rpc_port_parcel_write_string(parcel, text.c_str());
    const int error = rpc_port_parcel_send(parcel, port);
    rpc_port_parcel_destroy(parcel);
    return error;
  }
  bool saw(const std::string &what) const {
    return std::find(log.begin(), log.end(), what) != log.end();
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
  void listen() { listener_ = listen_at(socket_path()); }
  void accept_both() {
    for (UniqueFd *peer : {&peers_[0], &peers_[1]}) {
      pollfd entry = {listener_.get(), POLLIN, 0};
      ASSERT_EQ(poll(&entry, 1, 10000), 1);
      *peer = accept_peer(listener_.get());
      FrameReader greeting;
      ASSERT_TRUE(read_frame(peer->get(), greeting, 10000));
    }
  }
  void open(Client &client) {
    listen();
    ASSERT_EQ(client.connect(), 0);
    accept_both();
    put(peers_[0], answer(kAccepted));
    ASSERT_TRUE(run_until([&] { return client.saw("connected"); }));
  }

  UniqueFd listener_;
  UniqueFd peers_[2];  ///< main, callback
};

/** What a faulty peer does on one of its sockets. */
struct Fault {
  const char *name;
  int port;
  Bytes bytes;
  bool close;
};

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
      listen();
      auto server = std::async(std::launch::async, [&] {
        accept_both();
        put(peers_[fault.port], fault.bytes);
        if (fault.close) peers_[fault.port].reset();
      });
      ASSERT_EQ(client.connect(sync), 0);
      if (!sync) {
        ASSERT_TRUE(run_until([&] { return !client.log.empty(); }));
      }
      server.get();
      run_idle();
      EXPECT_EQ(client.log, Log{"rejected"});
      EXPECT_EQ(client.port(0), nullptr);
    }
  }
}

TEST_F(HostPortTest, ClientLosesTheConnectionOnceByAFault) {
  const Fault faults[] = {{"main ends", 0, {}, true},
                          {"callback ends", 1, {}, true},
                          {"half, main ends", 0, kHalfFrame, true},
                          {"half, callback ends", 1, kHalfFrame, true},
                          {"main oversized", 0, kOversized, false},
                          {"callback oversized", 1, kOversized, false}};
  for (const Fault &fault : faults) {
    for (const int reader : {-1, 0, 1}) {  // the port that is read meanwhile, if any
      // Rubbish is noticed by whoever reads the port: the loop, for the callback port.
      if (!fault.close && reader != fault.port && (reader >= 0 || fault.port == 0)) continue;
      SCOPED_TRACE(fault.name);
      Client client;
      open(client);
      rpc_port_h ports[] = {client.port(0), client.port(1)};
      put(peers_[fault.port], fault.bytes);
      if (fault.close) peers_[fault.port].reset();
      if (reader >= 0) {
        EXPECT_NE(Client::read(ports[reader]), 0);
      }
      ASSERT_TRUE(run_until([&] { return client.saw("disconnected"); }));
      run_idle();
      EXPECT_EQ(client.log, (Log{"connected", "disconnected"}));
      for (rpc_port_h port : ports) {
        EXPECT_NE(Client::read(port), 0);
        EXPECT_NE(Client::send(port, "x"), 0);
      }
    }
  }
}

TEST_F(HostPortTest, ParcelsBeforeTheEndAreDeliveredBeforeIt) {
  const Fault ends[] = {{"main ends", 0, {}, true},
                        {"callback ends", 1, {}, true},
                        {"half a frame", 1, kHalfFrame, true},
                        {"oversized", 1, kOversized, false},
                        {"a reader of the main port notices", 0, kOversized, false}};
  for (const Fault &end : ends) {
    for (const std::string &text : {std::string("x"), std::string(40000, 'x')}) {
      SCOPED_TRACE(end.name);
      Client client;
      open(client);
      for (int i = 0; i < 3; ++i) put(peers_[1], text_frame(text));
      put(peers_[end.port], end.bytes);
      if (end.close) peers_[end.port].reset();
      if (end.port == 0 && !end.close) {
        EXPECT_NE(Client::read(client.port(0)), 0);
      }
      run_idle();
      const std::string received = "received " + std::to_string(text.size());
      EXPECT_EQ(client.log, (Log{"connected", received, received, received, "disconnected"}));
    }
  }
}

TEST_F(HostPortTest, NoEventAfterDestroy) {
  const std::pair<const char *, Log> cases[] = {
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
      listen();
      auto server = std::async(
          std::launch::async, [&, verdict = expected.size() == 1 && expected[0] == "rejected"] {
            accept_both();
            // The client may be gone before it was told anything.
            for (int i = 0; i < 2; ++i) write_all(peers_[1].get(), text_frame("x"), 10000);
            write_all(peers_[0].get(), answer(verdict ? kRejected : kAccepted), 10000);
            for (UniqueFd &peer : peers_) peer.reset();
          });
      ASSERT_EQ(client.connect(sync), 0);
      if (expected.empty()) client.destroy();
      server.get();
      run_idle();
      EXPECT_EQ(client.log, expected);
    }
  }
}

TEST_F(HostPortTest, ConnectFailsAtOnce) {
  const std::string valid = device_;
  const std::string missing = valid + "/missing";
  listen_at(rpc_socket_path(Device::current(), "dead", "port"));  // closed, its file stays
  struct {
    const char *device, *app, *port;
    int error;
  } const cases[] = {
      {valid.c_str(), "", "port", -EINVAL},      {valid.c_str(), "svc", "", -EINVAL},
      {valid.c_str(), ".", "port", -EINVAL},     {valid.c_str(), "svc", "..", -EINVAL},
      {valid.c_str(), "a/b", "port", -EINVAL},   {valid.c_str(), "svc", "/port", -EINVAL},
      {valid.c_str(), nullptr, "port", -EINVAL}, {valid.c_str(), "svc", nullptr, -EINVAL},
      {valid.c_str(), "svc", "port", -EIO},      {valid.c_str(), "dead", "port", -EIO},
      {missing.c_str(), "svc", "port", -EIO},    {"", "svc", "port", -EIO}};
  Client client;
  for (const auto &entry : cases) {
    for (const bool sync : {false, true}) {
      setenv("KORVANE_DEVICE", entry.device, 1);
      EXPECT_EQ(client.connect(sync, entry.app, entry.port), entry.error)
          << entry.device << " " << (entry.app == nullptr ? "null" : entry.app);
    }
  }
  run_idle();
  EXPECT_EQ(client.log, Log{});
  setenv("KORVANE_DEVICE", valid.c_str(), 1);
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
  const Bytes third_port = hello(static_cast<Port>(2));
  struct {
    const char *name;
    Bytes first, second;
    bool turned_away;
  } const cases[] = {{"rubbish", framed({1, 2, 3}), {}, true},
                     {"empty", framed({}), {}, true},
                     {"magic", framed(wrong_magic.bytes()), {}, true},
                     {"no such port", third_port, hello(Port::kMain), true},
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

TEST_F(HostServerTest, DropsAFaultyClientOnceAfterItsParcels) {
  const Fault faults[] = {{"main ends", 0, {}, true},
                          {"callback ends", 1, {}, true},
                          {"half, main ends", 0, kHalfFrame, true},
                          {"main oversized", 0, kOversized, false},
                          {"callback oversized", 1, kOversized, false}};
  for (const Fault &fault : faults) {
    SCOPED_TRACE(fault.name);
    UniqueFd sockets[2];
    open(sockets);
    put(sockets[0], text_frame("a"));
    put(sockets[0], framed({}));
    put(sockets[fault.port], fault.bytes);
    if (fault.close) sockets[fault.port].reset();
    run_idle();
    EXPECT_EQ(log_, (Log{"connected", "received a", "rubbish", "disconnected"}));
    EXPECT_TRUE(server_.connections().empty());
    server_.send(last_, Port::kMain, Parcel());
    log_.clear();
  }
}

/** Connects by hand and tells whether it was answered; for a forked process, so without tests. */
int greet_as(uid_t user, const std::string &path) {
  if (setuid(user) != 0) return 10;
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  int sockets[2];
  for (const int port : {0, 1}) {
    sockets[port] = socket(AF_UNIX, SOCK_STREAM, 0);
    const auto *target = reinterpret_cast<const sockaddr *>(&address);
    if (connect(sockets[port], target, sizeof(address)) != 0) return 11;
    const Bytes greeting = hello(static_cast<Port>(port));
    // Fails when it was turned away at once.
    send(sockets[port], greeting.data(), greeting.size(), MSG_NOSIGNAL);
  }
  char byte = 0;
  return recv(sockets[0], &byte, 1, 0) == 1 ? 1 : 0;
}

TEST_F(HostServerTest, ForeignUserIsTurnedAway) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  const std::string path = socket_path();
  chmod(path.c_str(), 0777);
  for (auto folder = std::filesystem::path(path).parent_path(); folder != device_.parent_path();
       folder = folder.parent_path()) {
    chmod(folder.c_str(), 0755);
  }
  for (const uid_t user : {uid_t{65534}, uid_t{0}}) {
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    UniqueFd reading(pipe_ends[0]), writing(pipe_ends[1]);
    const pid_t child = fork();
    if (child == 0) _exit(greet_as(user, path));
    writing.reset();
    bool ended = false;
    const auto source = loop().add_descriptor(reading.get(), 0, [&](auto) { ended = true; });
    EXPECT_TRUE(run_until([&] { return ended; }));
    loop().remove(source);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    run_idle();
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), user == 0 ? 1 : 0);
    EXPECT_EQ(log_, user == 0 ? (Log{"connected", "disconnected"}) : Log{});
  }
}

}  // namespace
