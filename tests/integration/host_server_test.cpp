// The server of an RPC port against faulty clients.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

#include "app_event.h"
#include "events/event_publisher.h"
#include "host_port_fixture.h"
#include "ports/rpc_port_server.h"
#include "sockets/wait_limits.h"

namespace korvane::host {
namespace {

/** Both sockets of a client, which has said hello. */
struct RawClient {
  RawClient() {
    put(main, hello(Port::kMain));
    put(callback, hello(Port::kCallback));
  }
  UniqueFd main = connect_to(socket_path());
  UniqueFd callback = connect_to(socket_path());
};

class HostServerTest : public HostTest {
 protected:
  HostServerTest()
      : server_(loop(), "svc", "port",
                {[](const RpcPortServer::Peer &peer) { return peer.app_id != "refused"; },
                 [this](auto, const auto &) { note("connected"); },
                 [this](auto) { note("disconnected"); },
                 [this](auto, Parcel parcel) {
                   std::string text;
                   parcel.read_string(text);
                   note("received " + text);
                 }}) {}

  void note(const std::string &event) {
    AllocationFault::in_test([&] { log_.push_back(event); });
  }
  void send(const std::string &text) {
    Parcel parcel;
    parcel.write_string(text);
    server_.send(server_.connections().at(0), Port::kMain, parcel);
  }

  Log log_;
  RpcPortServer server_;
};

TEST_F(HostServerTest, FaultyHelloEndsItsSocket) {
  Bytes wrong_magic = hello(Port::kMain);
  ++wrong_magic[kFrameHeaderSize];
  const Bytes no_such_port = hello(static_cast<Port>(2));
  const Bytes long_name = hello(Port::kMain, "token", std::string(2000, 'x'));
  for (const Bytes &faulty : {framed({}), wrong_magic, no_such_port, long_name, kOversized}) {
    const UniqueFd peer = connect_to(socket_path());
    put(peer, faulty);
    run_idle();
    EXPECT_TRUE(at_end(peer)) << testing::PrintToString(faulty);
  }
  const RawClient proper;
  run_idle();
  EXPECT_EQ(log_, Log{"connected"});
}

TEST_F(HostServerTest, OnlyTheTwoPortsOfOneTokenAreAConnection) {
  const UniqueFd first = connect_to(socket_path());
  put(first, hello(Port::kMain));
  for (const Bytes &other : {hello(Port::kMain), hello(Port::kCallback, "another token")}) {
    const UniqueFd second = connect_to(socket_path());
    put(second, other);
    run_idle();
    EXPECT_FALSE(at_end(second));
  }
  EXPECT_EQ(log_, Log{});
}

TEST_F(HostServerTest, PeerThatSaysNoHelloIsDisconnected) {
  std::optional<RawClient> proper;
  for (limits.greeting = 1; server_.connections().empty(); limits.greeting *= 2) {
    proper.emplace();
    run_idle();
  }
  const UniqueFd silent = connect_to(socket_path());
  const UniqueFd without_other_port = connect_to(socket_path());
  put(without_other_port, hello(Port::kMain));
  while (!at_end(silent) || !at_end(without_other_port)) loop().step(1);
  EXPECT_EQ(log_, Log{"connected"});
}

TEST_F(HostServerTest, ClientWithoutMemoryIsDisconnectedAndOthersAreServed) {
  const RawClient other;
  run_idle();
  AllocationFault::in_each_allocation([&] {
    log_.clear();
    std::optional<RawClient> client(std::in_place);
    put(client->main, text_frame(std::string(100000, 'x')));
    AllocationFault::in_platform([] { run_idle(); });
    EXPECT_EQ(at_end(client->main) || at_end(client->callback), AllocationFault::has_occurred());
    put(other.main, text_frame("request"));
    run_idle();
    EXPECT_EQ(log_.back(), "received request");
    client.reset();
    run_idle();
    EXPECT_EQ(server_.connections().size(), 1U);
    EXPECT_EQ(std::count(log_.begin(), log_.end(), "connected"),
              std::count(log_.begin(), log_.end(), "disconnected"));
  });
}

TEST_F(HostServerTest, RefusedClientIsNotReported) {
  setenv("KORVANE_APP_ID", "refused", 1);
  Client client;
  EXPECT_EQ(client.connect(), 0);
  run_idle();
  EXPECT_EQ(client.log, Log{"rejected"});
  EXPECT_EQ(log_, Log{});
  unsetenv("KORVANE_APP_ID");
}

TEST_F(HostServerTest, SlowClientReceivesALongAnswer) {
  const RawClient client;
  run_idle();
  send(std::string(kMaxFrameSize / 2, 'x'));
  FrameReader reader;
  std::vector<std::size_t> sizes;
  for (int turn = 0; turn < 1000 && sizes.size() < 2; ++turn) {
    read_available(client.main.get(), reader);
    while (const auto frame = reader.next()) sizes.push_back(frame->size());
    run_idle();
  }
  const std::size_t verdict = sizeof(std::int32_t);
  EXPECT_EQ(sizes, (std::vector{verdict, verdict + kMaxFrameSize / 2}));
}

TEST_F(HostServerTest, ClientThatDoesNotReadIsDisconnected) {
  const RawClient client;
  run_idle();
  for (int i = 0; i < 20 && !server_.connections().empty(); ++i) {
    send(std::string(kMaxFrameSize / 2, 'x'));
  }
  run_idle();
  EXPECT_EQ(log_, (Log{"connected", "disconnected"}));
}

TEST_F(HostServerTest, ServerThatClosesServesNoRequest) {
  RawClient client;
  run_idle();
  server_.close(std::chrono::hours(1), [this] { log_.push_back("closed"); });
  put(client.main, text_frame("late"));
  client.main.reset();
  run_idle();
  EXPECT_EQ(log_, (Log{"connected", "disconnected", "closed"}));
}

TEST_F(HostServerTest, EventsAndTheEndOfAConnectionKeepTheirOrder) {
  Client client;
  const auto on_event = [](const char *, bundle_h, void *log) {
    static_cast<Log *>(log)->push_back("event");
  };
  event_handler_h handler = nullptr;
  ASSERT_EQ(event_add_event_handler("a", on_event, &client.log, &handler), 0);
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

TEST_F(HostServerTest, OtherUsersAreKeptOut) {
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
  EXPECT_THROW(connect_to(path), std::system_error) << "to a server of root";
  const auto *target = reinterpret_cast<const sockaddr *>(&address);
  EXPECT_EQ(connect(foreign.get(), target, sizeof(address)), 0);
  ASSERT_EQ(seteuid(0), 0);
  run_idle();
  EXPECT_TRUE(at_end(foreign));
}

}  // namespace
}  // namespace korvane::host
