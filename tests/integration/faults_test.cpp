// A running application while its service manager is killed, stopped, updated and flooded with.
#include <dirent.h>
#include <malloc.h>
#include <signal.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

#include "event_publisher.h"
#include "service_fixture.h"
#include "workload.h"

namespace {

unsigned number_from(const char *variable, unsigned otherwise) {
  const char *text = std::getenv(variable);
  return text != nullptr ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

std::size_t descriptors_of(const std::string &process) {
  const std::unique_ptr<DIR, int (*)(DIR *)> folder(opendir(("/proc/" + process + "/fd").c_str()),
                                                    closedir);
  std::size_t count = 0;
  while (readdir(folder.get()) != nullptr) ++count;
  return count;
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
    ASSERT_TRUE(until([this] { return load_.told_connected(); }));
  }

  /** Every request is answered, and nothing is left to be done or told. */
  void drain() {
    ASSERT_TRUE(until([this] { return load_.open() == 0; }));
    settle();
    load_.forget();
  }

  struct Holdings {
    std::size_t descriptors;
    std::size_t heap;
  };

  /** What the application holds between two connections, of which it makes the second. */
  Holdings reconnect() {
    load_.disconnect();
    load_.forget();
    const Holdings holdings = {descriptors_of("self"), heap_in_use()};
    connect_workload();
    return holdings;
  }

  std::size_t service_descriptors() const {
    return descriptors_of(std::to_string(emulator_.pid()));
  }

  /** The application holds what it held at first, the service too, and both work. */
  void expect_nothing_left_behind() {
    constexpr std::size_t kLeeway = 16 << 10;  // buffers that grew, not one entry for each request
    drain();
    const Holdings now = reconnect();
    EXPECT_EQ(now.descriptors, at_first_.descriptors);
    EXPECT_LE(now.heap, at_first_.heap + kLeeway);
    EXPECT_TRUE(until([this] { return service_descriptors() <= service_descriptors_; }))
        << service_descriptors() << " instead of " << service_descriptors_;
    const std::size_t answers = load_.answers();
    load_.request_list();
    drain();
    EXPECT_EQ(load_.answers(), answers + 1);
  }

  // What may befall a service. Each returns when the application is connected again.

  void kill_and_launch() {
    const std::size_t losses = load_.losses();
    emulator_.send_signal(SIGKILL);
    load_.act(load_.random(4));  // with a service that is going, or gone
    ASSERT_TRUE(until([&] { return load_.losses() > losses; }));
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
    const std::size_t losses = load_.losses();
    control({"drop"});
    load_.act(load_.random(4));
    ASSERT_TRUE(until([&] { return load_.losses() > losses; }));
    control({"announce", "Launch"});
    expect_told_again(losses);
  }

  void send_garbage() {
    const std::size_t losses = load_.losses();
    control({"garbage", "callback", load_.random(2) == 0 ? "oversized" : "rubbish"});
    ASSERT_TRUE(until([&] { return load_.losses() > losses; }));
    control({"announce", "Launch"});
    expect_told_again(losses);
  }

  /** An update of the service that nobody is told of, several times, under load. */
  void update_service(unsigned rounds) {
    drain();  // an update of agents that ended meanwhile would end this one as well
    load_.updates_agents = false;
    const std::size_t losses = load_.losses();
    const std::size_t wanted = load_.connections() + rounds;
    ChildProcess update;
    update.start(control_command({"update", "--count", std::to_string(rounds)}));
    ASSERT_TRUE(until([&] {
      load_.act();
      return load_.connections() >= wanted;
    }));
    EXPECT_EQ(update.wait(), 0);
    EXPECT_EQ(load_.connections(), wanted);
    EXPECT_EQ(load_.losses(), losses);
    load_.updates_agents = true;
    // Connections are told of again from the next update request on.
    EXPECT_EQ(korvane_svcmgr_request_update(), SVCMGR_ERROR_NONE);
    settle();
  }

  void flood(int events) {
    drain();
    const std::size_t statuses = load_.statuses();
    std::size_t sent = 0;
    std::atomic<bool> over{false};
    std::thread sender([&] {
      const std::string prefix = "event." SVCMGR_APP_ID ".";
      for (int i = 0; i < events; ++i) {
        korvane::host::EventBundle known;
        known.set_string("COMPLETED", "completed");
        korvane::host::EventBundle unknown;
        unknown.set_string("Junk", std::string(1000, 'x'));
        sent += korvane::host::publish_event(prefix + "model_status", known).reached;
        korvane::host::publish_event(prefix + "model_status", unknown);
        korvane::host::publish_event(prefix + "update_status", unknown);
        korvane::host::publish_event(prefix + "agent_status", unknown);
      }
      over = true;
    });
    EXPECT_TRUE(until([&] { return over && load_.statuses() >= statuses + sent; }));
    sender.join();
    EXPECT_GT(sent, 0U);
    EXPECT_EQ(load_.statuses(), statuses + sent);
  }

  const unsigned seed_;
  Workload load_;

 private:
  void expect_told_again(std::size_t losses) {
    ASSERT_TRUE(until([this] { return load_.told_connected(); }));
    EXPECT_EQ(load_.losses(), losses + 1);
  }

  Holdings at_first_ = {};
  std::size_t service_descriptors_ = 0;
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
  EXPECT_EQ(load_.open(), 2000U);
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
  using Clock = std::chrono::steady_clock;
  const std::pair<const char *, std::function<void()>> faults[] = {
      {"kill", [this] { kill_and_launch(); }},
      {"stop", [this] { stop_and_continue(); }},
      {"drop", [this] { drop_and_announce(); }},
      {"garbage", [this] { send_garbage(); }},
      {"update", [this] { update_service(1 + load_.random(3)); }},
      {"flood", [this] { flood(100); }},
      {"nothing", [] {}},
  };
  const auto start = Clock::now();
  const auto end = start + std::chrono::seconds(number_from("KORVANE_SOAK_SECONDS", 3));
  auto report = start;
  unsigned rounds = 0;
  while (Clock::now() < end && !HasFailure()) {
    const auto &[name, fault] = faults[load_.random(std::size(faults))];
    SCOPED_TRACE(name);
    load_.act(50 + load_.random(200));
    fault();
    expect_nothing_left_behind();
    ++rounds;
    if (Clock::now() < report && Clock::now() < end) continue;
    report += std::chrono::seconds(10);
    std::cout << std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start).count()
              << " s: " << rounds << " faults, " << load_.connections() << " connections, "
              << load_.losses() << " told lost, " << load_.answers() << " answers" << std::endl;
  }
}

}  // namespace
