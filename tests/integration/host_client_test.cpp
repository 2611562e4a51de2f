// The client of an RPC port against faulty servers.
#include <gmock/gmock.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <future>

#include "host_port_fixture.h"
#include "sockets/wait_limits.h"

namespace korvane::host {
namespace {

TEST_F(HostClientTest, FaultyAnswerIsARejection) {
  for (const Bytes &faulty : {Bytes(), kHalfFrame, kOversized, framed({1, 2}), answer(7)}) {
    SCOPED_TRACE(testing::PrintToString(faulty));
    Client client;
    ASSERT_EQ(client.connect(), 0);
    greet();
    put(main_, faulty);
    main_.reset();
    run_idle();
    EXPECT_EQ(client.log, Log{"rejected"});
    EXPECT_EQ(client.port(Port::kMain), nullptr);
  }
}

TEST_F(HostClientTest, LossIsReportedOnceAfterTheParcelsBeforeIt) {
  for (const Bytes &last : {Bytes(), kHalfFrame, kOversized}) {
    SCOPED_TRACE(testing::PrintToString(last));
    Client client;
    open(client);
    const rpc_port_h main = client.port(Port::kMain);
    if (last != kOversized) main_.reset();
    put(callback_, text_frame("x"));
    put(callback_, text_frame(std::string(40000, 'x')));
    put(callback_, last);
    run_idle();
    EXPECT_EQ(client.log, (Log{"connected", "received 1", "received 40000", "disconnected"}));
    EXPECT_EQ(Client::read(main), -EIO);
    EXPECT_EQ(Client::send(main, "x"), -EIO);
  }
}

TEST_F(HostClientTest, NoEventFollowsDestroy) {
  const std::pair<std::string, Log> cases[] = {
      {"rejected", {"rejected"}},
      {"connected", {"connected"}},
      {"received 1", {"connected", "received 1"}},
      {"disconnected", {"connected", "received 1", "received 1", "disconnected"}}};
  for (const auto &[destroyer, expected] : cases) {
    SCOPED_TRACE(destroyer);
    Client client;
    client.destroyer = destroyer;
    ASSERT_EQ(client.connect(), 0);
    greet();
    put(callback_, text_frame("x"));
    put(callback_, text_frame("x"));
    put(main_, answer(destroyer == "rejected" ? kRejected : kAccepted));
    main_.reset();
    callback_.reset();
    run_idle();
    EXPECT_EQ(client.log, expected);
  }
}

TEST_F(HostClientTest, ServerThatDoesNotAnswerIsARejection) {
  limits.answer = 10;
  Client client;
  EXPECT_EQ(client.connect_sync(), 0);
  EXPECT_EQ(client.log, Log{"rejected"});
}

TEST_F(HostClientTest, ServerThatStallsIsGivenUp) {
  limits.frame = limits.send_stall = 10;
  const std::string large(kMaxFrameSize / 2, 'x');
  for (const bool sends : {false, true}) {
    Client client;
    open(client);
    put(main_, kHalfFrame);
    const rpc_port_h main = client.port(Port::kMain);
    EXPECT_EQ(sends ? Client::send(main, large) : Client::read(main), -EIO);
    run_idle();
    EXPECT_EQ(client.log, (Log{"connected", "disconnected"}));
  }
}

TEST_F(HostClientTest, ReplyThatComesByteByByteIsGivenUp) {
  limits.frame = 200;  // much longer than between two bytes, much shorter than all take
  Client client;
  open(client);
  put(main_, {0, 0, 0x80, 0});
  const auto bytes = std::async(std::launch::async, [this] {
    while (write_all(main_.get(), {1}, kHangLimit) == 0) {
    }
  });
  EXPECT_EQ(Client::read(client.port(Port::kMain)), -EIO);
}

TEST_F(HostClientTest, SignalsDoNotEndTheWaitForAReply) {
  static std::atomic<int> signals_left = 3;
  std::signal(SIGALRM, [](int) { --signals_left; });
  Client client;
  open(client);
  const auto reply = std::async(std::launch::async, [this, waiter = pthread_self()] {
    while (signals_left > 0) pthread_kill(waiter, SIGALRM);
    put(main_, text_frame("reply"));
  });
  EXPECT_EQ(Client::read(client.port(Port::kMain)), 0);
}

TEST_F(HostClientTest, LongestFrameIsSentAndNoLongerOne) {
  Client client;
  open(client);
  const std::string longest(kMaxFrameSize - sizeof(std::int32_t), 'x');
  EXPECT_EQ(Client::send(client.port(Port::kMain), longest + "x"), -EIO);
  auto received = std::async(std::launch::async, [this] {
    FrameReader reader;
    return read_frame(main_.get(), reader, kHangLimit).value_or(Bytes());
  });
  EXPECT_EQ(Client::send(client.port(Port::kMain), longest), 0);
  EXPECT_TRUE(framed(received.get()) == text_frame(longest));
}

TEST_F(HostClientTest, ParcelInWhichAWriteFailedIsNotSent) {
  Client client;
  open(client);
  rpc_port_parcel_h parcel = nullptr;
  rpc_port_parcel_create(&parcel);
  EXPECT_EQ(rpc_port_parcel_write_string(parcel, nullptr), -EINVAL);
  EXPECT_EQ(rpc_port_parcel_send(parcel, client.port(Port::kMain)), -EIO);
  rpc_port_parcel_destroy(parcel);
}

TEST_F(HostClientTest, NoSocketBecomesAStandardStream) {
  const UniqueFd standard_input(dup(STDIN_FILENO));
  close(STDIN_FILENO);
  EXPECT_GT(connect_to(socket_path()).get(), STDERR_FILENO);
  EXPECT_GT(accept_peer(listener_.get()).get(), STDERR_FILENO);
  dup2(standard_input.get(), STDIN_FILENO);
}

TEST_F(HostClientTest, CallWithoutMemoryReturnsAnErrorAndCanBeRepeated) {
  AllocationFault::in_each_allocation([this] {
    Client client;
    if (AllocationFault::in_platform([&] { return client.connect(); }) != 0) {
      while (accept_peer(listener_.get())) {
      }
      ASSERT_EQ(client.connect(), 0);
    }
    greet();
    put(main_, answer(kAccepted));
    run_idle();
    const auto send = [&] { return Client::send(client.port(Port::kMain), "request"); };
    if (AllocationFault::in_platform(send) != 0) {
      EXPECT_EQ(send(), 0);
    }
    FrameReader requests;
    read_available(main_.get(), requests);
    EXPECT_TRUE(requests.next());
    EXPECT_FALSE(requests.next());
    EXPECT_EQ(client.log, Log{"connected"});
  });
}

TEST_F(HostClientTest, ConnectionWithoutMemoryIsReportedAsLostOnce) {
  AllocationFault::in_each_allocation([this] {
    Client client;
    ASSERT_EQ(client.connect(), 0);
    greet();
    put(main_, answer(kAccepted));
    put(main_, text_frame("reply"));
    put(callback_, text_frame("x"));
    AllocationFault::in_platform([&] {
      run_idle();
      if (const rpc_port_h main = client.port(Port::kMain)) Client::read(main);
      run_idle();
    });
    if (AllocationFault::has_occurred()) {
      EXPECT_THAT(client.log, testing::AnyOf(Log{"rejected"}, Log{"connected", "disconnected"},
                                             Log{"connected", "received 1", "disconnected"}));
    } else {
      EXPECT_EQ(client.log, (Log{"connected", "received 1"}));
    }
  });
}

}  // namespace
}  // namespace korvane::host
