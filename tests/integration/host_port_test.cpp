// Both ends of an RPC port against faulty peers.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <future>

#include "app_event.h"
#include "events/event_publisher.h"
#include "host_fixture.h"
#include "ports/rpc_port_handles.h"
#include "ports/rpc_port_server.h"
#include "sockets/local_socket.h"
#include "sockets/wait_limits.h"

using namespace korvane::host;

namespace {

const Bytes kOversized = {1, 0, 0x80, 0};
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

Bytes hello(Port port, const std::string &token = "token", const std::string &app = "app") {
  return framed(Hello{port, token, app}.encode().bytes());
}

Bytes text_frame(const std::string &text) {
  Parcel parcel;
  parcel.write_string(text);
  return framed(parcel.bytes());
}

std::string socket_path() {
  return rpc_socket_path(Device::current(), "svc", "port").string();
}

void put(const UniqueFd &socket, const Bytes &bytes) {
  ASSERT_EQ(write_all(socket.get(), bytes, 10000), 0);
}

bool at_end(const UniqueFd &socket) {
  FrameReader reader;
  ReadState state = ReadState::kData;
  while (state == ReadState::kData) state = read_available(socket.get(), reader);
  return state == ReadState::kEnd;
}

void log_event(const char *, bundle_h, void *log) {
  static_cast<std::vector<std::string> *>(log)->push_back("event");
}

/** A proxy and its events. The named event, if any, destroys it. */
class Client {
 public:
  explicit Client(std::string destroyer = "") : destroyer_(std::move(destroyer)) {
    rpc_port_proxy_create(&proxy_);
    const auto connected = [](auto, auto, auto, void *self) { report(self, "connected"); };
    const auto disconnected = [](auto, auto, void *self) { report(self, "disconnected"); };
    const auto rejected = [](auto, auto, void *self) { report(self, "rejected"); };
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
  rpc_port_h port(int type) {
    rpc_port_h port = nullptr;
    rpc_port_proxy_get_port(proxy_, type, &port);
    return port;
  }
  static int read(rpc_port_h port, std::string *text = nullptr) {
    rpc_port_parcel_h parcel = nullptr;
    const int error = rpc_port_parcel_create_from_port(&parcel, port);
    if (error != 0) return error;
    if (text != nullptr) ScarceMemory::in_test([&] { parcel->parcel.read_string(*text); });
    return rpc_port_parcel_destroy(parcel);
  }
  static int send(rpc_port_h port, const std::string &text) {
    rpc_port_parcel_h parcel = nullptr;
    if (const int error = rpc_port_parcel_create(&parcel)) return error;
    rpc_port_parcel_write_int32(parcel, 1);
    rpc_port_parcel_write_string(parcel, text.c_str());
    const int error = rpc_port_parcel_send(parcel, port);
    rpc_port_parcel_destroy(parcel);
    return error;
  }

  std::vector<std::string> log;

 private:
  static void on_received(const char *, const char *, void *user_data) {
    std::string text;
    if (read(static_cast<Client *>(user_data)->port(1), &text) != 0) return;
    ScarceMemory::in_test([&] { report(user_data, "received " + std::to_string(text.size())); });
  }
  static void report(void *user_data, const std::string &what) {
    ScarceMemory::in_test([&] {
      auto &self = *static_cast<Client *>(user_data);
      self.log.push_back(what);
      if (what == self.destroyer_) self.destroy();
    });
  }

  rpc_port_proxy_h proxy_ = nullptr;
  const std::string destroyer_;
};

class HostPortTest : public HostTest {
 protected:
  ~HostPortTest() override { limits = Limits(); }

  /** Accepts the two sockets of a client and reads their hellos. */
  void greet() {
    for (UniqueFd &peer : peers_) {
      peer = accept_peer(listener_.get());
      FrameReader greeting;
      ASSERT_TRUE(read_frame(peer.get(), greeting, 10000));
    }
  }
  void open(Client &client) {
    ASSERT_EQ(client.connect(), 0);
    greet();
    put(peers_[0], answer(kAccepted));
    run_idle();
    ASSERT_EQ(client.log, Log{"connected"});
  }

  UniqueFd listener_ = listen_at(socket_path());
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

TEST_F(HostPortTest, ClientIsRejectedOnceByAFaultyAnswer) {
  const Fault faults[] = {{"end", 0, {}, true},
                          {"callback ends", 1, {}, true},
                          {"half a frame, end", 0, kHalfFrame, true},
                          {"oversized", 0, kOversized, false},
                          {"short answer", 0, framed({1, 2}), false},
                          {"unknown verdict", 0, answer(7), false}};
  for (const Fault &fault : faults) {
    SCOPED_TRACE(fault.name);
    Client client;
    ASSERT_EQ(client.connect(), 0);
    greet();
    fault.commit(peers_);
    run_idle();
    EXPECT_EQ(client.log, Log{"rejected"});
    EXPECT_EQ(client.port(0), nullptr);
  }
}

TEST_F(HostPortTest, ClientLosesTheConnectionOnceAfterTheParcelsBeforeTheFault) {
  const Fault faults[] = {{"main ends", 0, {}, true},
                          {"half, callback ends", 1, kHalfFrame, true},
                          {"main oversized", 0, kOversized, false},
                          {"callback oversized", 1, kOversized, false}};
  for (const Fault &fault : faults) {
    for (const bool waits_for_a_reply : {false, true}) {
      const bool loop_reads = fault.port == 1;
      if (!fault.close && waits_for_a_reply == loop_reads) continue;  // the bytes are not read
      SCOPED_TRACE(fault.name);
      Client client;
      open(client);
      const rpc_port_h main = client.port(0);
      for (const std::size_t size : {1U, 40000U})
        put(peers_[1], text_frame(std::string(size, 'x')));
      fault.commit(peers_);
      if (waits_for_a_reply) {
        EXPECT_EQ(Client::read(main), -EIO);
      }
      run_idle();
      EXPECT_EQ(client.log, (Log{"connected", "received 1", "received 40000", "disconnected"}));
      EXPECT_EQ(Client::read(main), -EIO);
      EXPECT_EQ(Client::send(main, "x"), -EIO);
    }
  }
}

TEST_F(HostPortTest, NoEventAfterDestroy) {
  const std::pair<std::string, Log> cases[] = {
      {"while connecting", {}},
      {"rejected", {"rejected"}},
      {"connected", {"connected"}},
      {"received 1", {"connected", "received 1"}},
      {"disconnected", {"connected", "received 1", "received 1", "disconnected"}}};
  for (const auto &[destroyer, expected] : cases) {
    SCOPED_TRACE(destroyer);
    Client client(destroyer);
    ASSERT_EQ(client.connect(), 0);
    greet();
    for (int i = 0; i < 2; ++i) put(peers_[1], text_frame("x"));
    put(peers_[0], answer(destroyer == "rejected" ? kRejected : kAccepted));
    for (UniqueFd &peer : peers_) peer.reset();
    if (expected.empty()) client.destroy();
    run_idle();
    EXPECT_EQ(client.log, expected);
  }
}

TEST_F(HostPortTest, ConnectsOnceThoughItFailedBefore) {
  listen_at(rpc_socket_path(Device::current(), "dead", "port"));  // closed, its file stays
  Client client;
  EXPECT_EQ(client.connect(nullptr), -EINVAL);
  EXPECT_EQ(client.connect("dead"), -EIO);
  EXPECT_EQ(client.connect("missing"), -EIO);
  open(client);
  EXPECT_EQ(client.connect(), -EIO);
}

TEST_F(HostPortTest, SilentOrStalledPeerIsGivenUp) {
  limits = {10, 10, 10, 10};
  Client unanswered;
  EXPECT_EQ(unanswered.connect_sync(), 0);
  EXPECT_EQ(unanswered.log, Log{"rejected"});
  greet();
  for (const bool sends : {false, true}) {
    Client client;
    open(client);
    put(peers_[0], kHalfFrame);
    const rpc_port_h main = client.port(0);
    EXPECT_EQ(sends ? Client::send(main, std::string(kMaxFrameSize / 2, 'x')) : Client::read(main),
              -EIO);
    run_idle();
    EXPECT_EQ(client.log, (Log{"connected", "disconnected"}));
  }
  Client client;
  open(client);
  put(peers_[0], {0, 0, 0x80, 0});
  const auto drips = std::async(std::launch::async, [this] {
    while (write_all(peers_[0].get(), {1}, 10000) == 0) {
    }
  });
  EXPECT_EQ(Client::read(client.port(0)), -EIO) << "though it goes on, byte by byte";
}

std::atomic<int> signals_left = 0;

TEST_F(HostPortTest, SignalsEndNoWait) {
  Client client;
  open(client);
  std::signal(SIGALRM, [](int) { --signals_left; });
  signals_left = 3;
  const auto reply = std::async(std::launch::async, [this, waiter = pthread_self()] {
    while (signals_left > 0) pthread_kill(waiter, SIGALRM);
    put(peers_[0], text_frame("reply"));
  });
  EXPECT_EQ(Client::read(client.port(0)), 0);
  std::signal(SIGALRM, SIG_DFL);
}

TEST_F(HostPortTest, LongestFrameIsSentAndNoLongerNorFaultyOne) {
  Client client;
  open(client);
  const std::string longest(kMaxFrameSize - 2 * sizeof(std::int32_t), 'x');
  EXPECT_EQ(Client::send(client.port(0), longest + "x"), -EIO);
  auto received = std::async(std::launch::async, [this] {
    FrameReader reader;
    const auto frame = read_frame(peers_[0].get(), reader, 60000);
    return frame ? frame->size() : 0;
  });
  EXPECT_EQ(Client::send(client.port(0), longest), 0);
  EXPECT_EQ(received.get(), kMaxFrameSize);
  rpc_port_parcel_h faulty = nullptr;
  rpc_port_parcel_create(&faulty);
  EXPECT_EQ(rpc_port_parcel_write_string(faulty, nullptr), -EINVAL);
  EXPECT_EQ(rpc_port_parcel_send(faulty, client.port(0)), -EIO);
  rpc_port_parcel_destroy(faulty);
}

TEST_F(HostPortTest, NoSocketTakesThePlaceOfAStandardStream) {
  const UniqueFd standard_input(dup(STDIN_FILENO));
  close(STDIN_FILENO);
  EXPECT_GT(connect_to(socket_path()).get(), STDERR_FILENO);
  EXPECT_GT(accept_peer(listener_.get()).get(), STDERR_FILENO);
  dup2(standard_input.get(), STDIN_FILENO);
}

TEST_F(HostPortTest, CallThatLacksMemoryReturnsAnErrorAndCanBeRepeated) {
  ScarceMemory::tell([this] {
    Client client;
    int error = 0;
    ScarceMemory::in_platform([&] { error = client.connect(); });
    if (error != 0) {
      while (accept_peer(listener_.get())) {
      }
      ASSERT_EQ(client.connect(), 0);
    }
    greet();
    put(peers_[0], answer(kAccepted));
    run_idle();
    ScarceMemory::in_platform([&] { error = Client::send(client.port(0), "request"); });
    if (error != 0) {
      EXPECT_EQ(Client::send(client.port(0), "request"), 0);
    }
    FrameReader requests;
    read_available(peers_[0].get(), requests);
    EXPECT_TRUE(requests.next());
    EXPECT_FALSE(requests.next());
    run_idle();
    EXPECT_EQ(client.log, Log{"connected"});
  });
}

TEST_F(HostPortTest, ConnectionThatLacksMemoryIsReportedAsLostOnce) {
  ScarceMemory::tell([this] {
    Client client;
    ASSERT_EQ(client.connect(), 0);
    greet();
    put(peers_[0], answer(kAccepted));
    put(peers_[0], text_frame("reply"));
    put(peers_[1], text_frame("x"));
    ScarceMemory::in_platform([&] {
      run_idle();
      if (client.port(0) != nullptr) Client::read(client.port(0));
      run_idle();
    });
    if (ScarceMemory::has_failed()) {
      EXPECT_THAT(client.log, testing::AnyOf(Log{"rejected"}, Log{"connected", "disconnected"},
                                             Log{"connected", "received 1", "disconnected"}));
    } else {
      EXPECT_EQ(client.log, (Log{"connected", "received 1"}));
    }
  });
}

TEST_F(HostPortTest, ForkedChildLeavesToItsParentWhatItInherits) {
  Client client;
  open(client);
  event_handler_h handler = nullptr;
  ASSERT_EQ(event_add_event_handler("a", log_event, &client.log, &handler), 0);
  publish_event("a", EventBundle());
  const rpc_port_h main = client.port(0);
  const pid_t child = fork();
  if (child == 0) {
    const bool has_a_part = Client::send(main, "child") == 0 || Client::read(main) == 0;
    event_remove_event_handler(handler);
    client.destroy();
    Client own;
    open(own);
    _exit(has_a_part || HasFailure() ? 1 : 0);
  }
  expect_success(child);
  EXPECT_EQ(publish_event("a", EventBundle()).reached, 1U);
  run_idle();
  put(peers_[0], text_frame("reply"));
  EXPECT_EQ(Client::send(main, "parent"), 0);
  EXPECT_EQ(Client::read(main), 0);
  event_remove_event_handler(handler);
  EXPECT_EQ(client.log, (Log{"connected", "event", "event"}));
}

class HostServerTest : public HostTest {
 protected:
  HostServerTest()
      : server_(loop(), "svc", "port",
                {[](const RpcPortServer::Peer &peer) { return peer.app_id != "refused"; },
                 [this](auto id, const auto &) {
                   last_ = id;
                   note("connected");
                 },
                 [this](auto) { note("disconnected"); },
                 [this](auto, Parcel parcel) {
                   std::string text;
                   note(parcel.read_string(text) ? "received " + text : "rubbish");
                 }}) {}

  void note(const std::string &what) {
    ScarceMemory::in_test([&] { log_.push_back(what); });
  }

  /** Opens both sockets of a connection without a proxy. */
  void open(UniqueFd (&sockets)[2], const std::filesystem::path &path) {
    for (const Port port : {Port::kMain, Port::kCallback}) {
      UniqueFd &socket = sockets[static_cast<int>(port)];
      socket = connect_to(path);
      put(socket, hello(port));
    }
    run_idle();
  }

  Log log_;
  RpcPortServer::ConnectionId last_ = 0;
  RpcPortServer server_;
};

TEST_F(HostServerTest, TurnsFaultyGreetingsAway) {
  Bytes wrong_magic = hello(Port::kMain);
  ++wrong_magic[kFrameHeaderSize];
  struct {
    const char *name;
    Bytes first, second;
    bool turned_away;
  } const cases[] = {{"empty", framed({}), {}, true},
                     {"magic", wrong_magic, {}, true},
                     {"no such port", hello(static_cast<Port>(2)), hello(Port::kMain), true},
                     {"oversized", kOversized, {}, true},
                     {"endless name", hello(Port::kMain, "t", std::string(2000, 'x')), {}, true},
                     {"two main ports", hello(Port::kMain), hello(Port::kMain), false},
                     {"two tokens", hello(Port::kMain), hello(Port::kCallback, "other"), false}};
  for (const auto &entry : cases) {
    SCOPED_TRACE(entry.name);
    const UniqueFd peers[] = {connect_to(socket_path()), connect_to(socket_path())};
    put(peers[0], entry.first);
    put(peers[1], entry.second);
    run_idle();
    EXPECT_EQ(at_end(peers[0]), entry.turned_away);
    EXPECT_FALSE(at_end(peers[1]));
    EXPECT_EQ(log_, Log{});
  }
  UniqueFd proper[2];
  open(proper, socket_path());
  EXPECT_EQ(log_, Log{"connected"});
}

TEST_F(HostServerTest, OnlyPeersThatSayWhoTheyAreStay) {
  UniqueFd proper[2];
  for (limits.greeting = 1; server_.connections().empty(); limits.greeting *= 2) {
    open(proper, socket_path());
  }
  const UniqueFd silent = connect_to(socket_path());
  const UniqueFd without_counterpart = connect_to(socket_path());
  put(without_counterpart, hello(Port::kMain));
  while (!at_end(silent) || !at_end(without_counterpart)) loop().step(1);
  limits = Limits();
  EXPECT_EQ(log_, Log{"connected"});
}

TEST_F(HostServerTest, PeerThatLacksMemoryIsLostAndOthersAreServed) {
  UniqueFd other[2];
  open(other, socket_path());
  ScarceMemory::tell([&] {
    log_.clear();
    UniqueFd sockets[2];
    for (const Port port : {Port::kMain, Port::kCallback}) {
      sockets[static_cast<int>(port)] = connect_to(socket_path());
      put(sockets[static_cast<int>(port)], hello(port, "scarce"));
    }
    put(sockets[0], text_frame(std::string(100000, 'x')));
    ScarceMemory::in_platform([] { run_idle(); });
    EXPECT_EQ(at_end(sockets[0]) || at_end(sockets[1]), ScarceMemory::has_failed());
    put(other[0], text_frame("still"));
    run_idle();
    EXPECT_EQ(log_.back(), "received still");
    for (UniqueFd &socket : sockets) socket.reset();
    run_idle();
    EXPECT_EQ(server_.connections().size(), 1U);
    EXPECT_EQ(std::count(log_.begin(), log_.end(), "connected"),
              std::count(log_.begin(), log_.end(), "disconnected"));
  });
}

TEST_F(HostServerTest, WhoIsRefusedHasNeverBeenThere) {
  setenv("KORVANE_APP_ID", "refused", 1);
  Client client;
  EXPECT_EQ(client.connect(), 0);
  run_idle();
  EXPECT_EQ(client.log, Log{"rejected"});
  EXPECT_EQ(log_, Log{});
  unsetenv("KORVANE_APP_ID");
}

TEST_F(HostServerTest, WaitsForASlowPeerUpToALimit) {
  UniqueFd sockets[2];
  open(sockets, socket_path());
  put(sockets[1], text_frame("no request: it comes on the callback port"));
  Parcel large;
  large.write_string(std::string(kMaxFrameSize / 2, 'x'));
  server_.send(last_, Port::kMain, large);
  FrameReader reader;
  int frames = 0;
  for (int turn = 0; turn < 1000 && frames < 2; ++turn) {
    read_available(sockets[0].get(), reader);
    while (reader.next()) ++frames;
    run_idle();
  }
  EXPECT_EQ(frames, 2) << "the verdict, and the large one";
  for (int i = 0; i < 20; ++i) server_.send(last_, Port::kCallback, large);
  run_idle();
  EXPECT_EQ(log_, (Log{"connected", "disconnected"}));
}

TEST_F(HostServerTest, ServesNoRequestWhileItCloses) {
  UniqueFd sockets[2];
  open(sockets, socket_path());
  server_.close(std::chrono::hours(1), [this] { log_.push_back("closed"); });
  put(sockets[0], text_frame("late"));
  sockets[0].reset();
  run_idle();
  EXPECT_EQ(log_, (Log{"connected", "disconnected", "closed"}));
}

TEST_F(HostServerTest, AnnouncedUpdateIsDeliveredInItsOrderHoweverLongTheClientStandsStill) {
  Client client;
  event_handler_h handler = nullptr;
  ASSERT_EQ(event_add_event_handler("a", log_event, &client.log, &handler), 0);
  ASSERT_EQ(client.connect(), 0);
  run_idle();
  publish_event("a", EventBundle());
  publish_event("a", EventBundle());
  server_.disconnect_all();
  publish_event("a", EventBundle());
  run_idle();
  event_remove_event_handler(handler);
  EXPECT_EQ(client.log, (Log{"connected", "event", "event", "disconnected", "event"}));
}

TEST_F(HostServerTest, ForeignUserIsTurnedAway) {
  const std::string path = socket_path();
  using std::filesystem::perms;
  EXPECT_EQ(std::filesystem::status(path).permissions(), perms::owner_read | perms::owner_write);
  if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  for (std::filesystem::path part = path; part != device_.parent_path();) {
    permissions(part, perms::all);
    part = part.parent_path();
  }
  const UniqueFd foreign(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0));
  sockaddr_un address = {AF_UNIX, ""};
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  ASSERT_EQ(seteuid(65534), 0);
  EXPECT_THROW(connect_to(path), std::system_error) << "what root serves";
  const auto *target = reinterpret_cast<const sockaddr *>(&address);
  EXPECT_EQ(connect(foreign.get(), target, sizeof(address)), 0);
  ASSERT_EQ(seteuid(0), 0);
  run_idle();
  EXPECT_TRUE(at_end(foreign));
}

}  // namespace
