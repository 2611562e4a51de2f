// A running application while its service manager is killed, stopped, updated and flooded with.
#include <malloc.h>
#include <signal.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <iostream>

#include "event_publisher.h"
#include "service_fixture.h"
#include "workload.h"

namespace {

using namespace std::chrono_literals;
using korvane::host::EventBundle;
using korvane::host::publish_event;

unsigned number_from(const char *variable, unsigned otherwise) {
  const char *text = std::getenv(variable);
  return text != nullptr ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

auto descriptors_of(const std::string &process) {
  return std::distance(std::filesystem::directory_iterator("/proc/" + process + "/fd"), {});
}

/**
 * Bytes that are allocated. A constant where a sanitizer has an allocator of its own, and unless
 * glibc runs without the caches that count as allocated.
 */
std::size_t heap_in_use() {
  const char *tunables = std::getenv("GLIBC_TUNABLES");
  const bool exact = tunables != nullptr && std::string(tunables) == HEAP_TUNABLES;
  return exact ? mallinfo2().uordblks : 0;
}

class FaultsTest : public ServiceTest {
 protected:
  FaultsTest() : seed_(number_from("KORVANE_SEED", 1)), load_(seed_) {
    std::cout << "KORVANE_SEED=" << seed_ << std::endl;
  }

  void SetUp() override {
    // What is made once, at first use, is no leak.
    connect_workload();
    load_.act(100);
    drain();
    at_first_ = reconnect();
    service_descriptors_ = service_descriptors();
  }

  bool until(const std::function<bool()> &condition) {
    return run_until(
        [&] {
          load_.note_connection();
          return condition();
        },
        10);
  }

  void connect_workload() {
    load_.connect();
    ASSERT_TRUE(until([this] { return load_.told_connected; }));
  }

  /** Every request is answered, and nothing is left to be done or told. */
  void drain() {
    ASSERT_TRUE(until([this] { return load_.open() == 0; }));
    settle();
    load_.forget();
  }

  /** The descriptors and bytes that the application holds between two connections. */
  std::pair<std::ptrdiff_t, std::size_t> reconnect() {
    load_.disconnect();
    load_.forget();
    const std::pair holdings(descriptors_of("self"), heap_in_use());
    connect_workload();
    return holdings;
  }

  std::ptrdiff_t service_descriptors() const {
    return descriptors_of(std::to_string(emulator_.pid()));
  }

  /** The application holds what it held at first, the service too, and both work. */
  void expect_nothing_left_behind() {
    constexpr std::size_t kLeeway = 16 << 10;  // buffers that grew, not one entry for each request
    drain();
    const auto [descriptors, heap] = reconnect();
    EXPECT_EQ(descriptors, at_first_.first);
    EXPECT_LE(heap, at_first_.second + kLeeway);
    EXPECT_TRUE(until([this] { return service_descriptors() <= service_descriptors_; }));
    const std::size_t answers = load_.answers;
    load_.request_list();
    drain();
    EXPECT_EQ(load_.answers, answers + 1);
  }

  // What may befall a service. Each returns when the application is connected again.

  void kill_and_launch() {
    const std::size_t losses = load_.losses;
    emulator_.send_signal(SIGKILL);
    load_.act(load_.random(4));  // with a service that is going, or gone
    ASSERT_TRUE(until([&] { return load_.losses > losses; }));
    ASSERT_EQ(emulator_.wait(), -SIGKILL);
    load_.act(load_.random(4));
    start_emulator();
    expect_told_again(losses);
  }

  void stop_and_continue() {
    emulator_.stop();
    for (unsigned count = load_.random(50); count > 0; --count) load_.request_list();
    ChildProcess waker;
    waker.start({"/bin/sh", "-c", "kill -CONT " + std::to_string(emulator_.pid())});
    int level = 0;
    EXPECT_EQ(korvane_svcmgr_get_agent_api_level(&level), SVCMGR_ERROR_NONE);
    EXPECT_EQ(waker.wait(), 0);
  }

  void drop_and_announce() {
    const std::size_t losses = load_.losses;
    control({"drop"});
    load_.act(load_.random(4));
    ASSERT_TRUE(until([&] { return load_.losses > losses; }));
    control({"announce", "Launch"});
    expect_told_again(losses);
  }

  /** An update of the service that nobody is told of, several times, under load. */
  void update_service(unsigned rounds) {
    const std::size_t losses = load_.losses;
    const std::size_t wanted = load_.connections + rounds;
    ChildProcess update;
    update.start(control_command({"update", "--count", std::to_string(rounds)}));
    ASSERT_TRUE(until([&] {
      load_.act(1);
      return load_.connections >= wanted;
    }));
    EXPECT_EQ(update.wait(), 0);
    EXPECT_EQ(load_.connections, wanted);
    EXPECT_EQ(load_.losses, losses);
    // Connections are told of again from the next update request on.
    EXPECT_EQ(korvane_svcmgr_request_update(), SVCMGR_ERROR_NONE);
    settle();
  }

  void flood(int events) {
    drain();
    const std::size_t statuses = load_.statuses;
    auto sender = std::async(std::launch::async, [events] {
      const std::string prefix = "event." SVCMGR_APP_ID ".";
      EventBundle known, unknown;
      known.set_string("COMPLETED", "completed");
      unknown.set_string("Junk", std::string(1000, 'x'));
      std::size_t sent = 0;
      for (int i = 0; i < events; ++i) {
        sent += publish_event(prefix + "model_status", known).reached;
        for (const char *name : {"model_status", "update_status", "agent_status"}) {
          publish_event(prefix + name, unknown);
        }
      }
      return sent;
    });
    EXPECT_TRUE(until([&] { return sender.wait_for(0s) == std::future_status::ready; }));
    const std::size_t sent = sender.get();
    EXPECT_GT(sent, 0U);
    EXPECT_TRUE(until([&] { return load_.statuses == statuses + sent; }));
  }

  const unsigned seed_;
  Workload load_;

 private:
  void expect_told_again(std::size_t losses) {
    ASSERT_TRUE(until([this] { return load_.told_connected; }));
    EXPECT_EQ(load_.losses, losses + 1);
  }

  std::pair<std::ptrdiff_t, std::size_t> at_first_;
  std::ptrdiff_t service_descriptors_ = 0;
};

TEST_F(FaultsTest, KilledAtRandomPoints) {
  for (int round = 0; round < 300 && !HasFailure(); ++round) {
    load_.act(load_.random(20));
    kill_and_launch();
  }
  expect_nothing_left_behind();
}

TEST_F(FaultsTest, UpdatedAHundredTimesUnderLoad) {
  update_service(100);
  expect_nothing_left_behind();
}

TEST_F(FaultsTest, FloodOfEvents) {
  flood(5000);
  expect_nothing_left_behind();
}

TEST_F(FaultsTest, TwoThousandOpenRequests) {
  const rlimit few = {256, 256};  // a request costs the service no descriptor
  ASSERT_EQ(prlimit(emulator_.pid(), RLIMIT_NOFILE, &few, nullptr), 0);
  for (int i = 0; i < 1000; ++i) {
    load_.request_job();
    load_.request_list();
  }
  EXPECT_EQ(load_.open(), 2000);
  expect_nothing_left_behind();
}

TEST_F(FaultsTest, AThousandConnections) {
  for (int round = 0; round < 1000 && !HasFailure(); ++round) {
    load_.request_list();
    load_.disconnect();
    connect_workload();
  }
  expect_nothing_left_behind();
}

/** Everything that may happen, in any order, for KORVANE_SOAK_SECONDS. */
TEST_F(FaultsTest, Soak) {
  const std::function<void()> faults[] = {
      [this] { kill_and_launch(); },   [this] { stop_and_continue(); },
      [this] { drop_and_announce(); }, [this] { update_service(1 + load_.random(3)); },
      [this] { flood(100); },
  };
  const auto now = std::chrono::steady_clock::now;
  const auto end = now() + std::chrono::seconds(number_from("KORVANE_SOAK_SECONDS", 3));
  unsigned rounds = 0;
  for (; now() < end && !HasFailure(); ++rounds) {
    const unsigned fault = load_.random(std::size(faults));
    SCOPED_TRACE(fault);
    load_.act(50 + load_.random(200));
    faults[fault]();
    expect_nothing_left_behind();
    if (rounds % 50 == 49) std::cout << rounds + 1 << " faults" << std::endl;
  }
  std::cout << rounds << " faults, " << load_.connections << " connections, " << load_.losses
            << " told lost, " << load_.answers << " answers" << std::endl;
}

}  // namespace
