// The main loop.
#include <malloc.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <future>
#include <stdexcept>
#include <thread>

#include "host_fixture.h"
#include "korvane_host.hpp"

using namespace korvane::host;
using std::chrono::milliseconds;

namespace {

class HostLoopTest : public HostTest {};

TEST_F(HostLoopTest, TasksAreCalledFromTheLoopInTheirOrder) {
  std::string log;
  call_after(milliseconds(0), [&] {
    call_after(milliseconds(1), korvane_host_main_loop_quit);
    log += "first ";
  });
  call_after(milliseconds(0), [&] { log += "second"; });
  EXPECT_EQ(log, "");
  EXPECT_EQ(korvane_host_main_loop_run(), 0);
  EXPECT_EQ(log, "first second");
}

TEST_F(HostLoopTest, ServesWhatIsDueUntilQuit) {
  MainLoop loop;
  const auto readable = [&loop](int timeout_ms) {
    pollfd entry = {loop.descriptor(), POLLIN, 0};
    return poll(&entry, 1, timeout_ms) == 1;
  };
  std::string log;
  EXPECT_EQ(loop.step(1), 0);
  EXPECT_FALSE(readable(0));
  loop.add_timer({}, [&] {
    loop.add_timer({}, [&] { log += "second "; });
    log += "first ";
    EXPECT_EQ(loop.step(10000), 1);
  });
  EXPECT_TRUE(readable(10000));
  EXPECT_EQ(loop.step(0), 1);
  loop.remove(loop.add_timer({}, [&] { log += "removed "; }));
  loop.add_timer({}, [] { throw std::runtime_error("the loop goes on"); });
  const auto due = std::chrono::steady_clock::now() + milliseconds(20);
  loop.add_timer(milliseconds(20), [&] {
    log += std::chrono::steady_clock::now() >= due ? "timer" : "early";
    loop.quit();
  });
  EXPECT_EQ(loop.run(), 0);
  std::thread other;
  loop.add_timer({}, [&] {
    log += " again";
    other = std::thread([&] { loop.quit(); });
  });
  EXPECT_EQ(loop.run(), 0);
  other.join();
  EXPECT_EQ(log, "first second timer again");
}

TEST_F(HostLoopTest, QuitBeforeThereIsALoopAllocatesNothingAndEndsTheNextOne) {
  std::signal(SIGALRM, [](int) { korvane_host_main_loop_quit(); });
  const pid_t child = fork();  // has no loop of its own yet
  if (child == 0) {
    const std::size_t heap = mallinfo2().uordblks;
    std::raise(SIGALRM);
    const bool has_allocated = mallinfo2().uordblks != heap;
    alarm(60);  // ends a loop that the first signal did not end
    const int result = korvane_host_main_loop_run();
    _exit(!has_allocated && result == 0 && alarm(0) != 0 ? 0 : 1);
  }
  expect_success(child);
  std::signal(SIGALRM, SIG_DFL);
  EXPECT_EQ(korvane_host_main_loop_step(0), 0) << "the parent goes on";
}

TEST_F(HostLoopTest, SignalsDoNotEndAStep) {
  static std::atomic<int> signals_left = 3;
  std::signal(SIGALRM, [](int) { --signals_left; });
  const auto signals = std::async(std::launch::async, [waiter = pthread_self()] {
    while (signals_left > 0) pthread_kill(waiter, SIGALRM);
    call_after(milliseconds(0), [] {});
  });
  EXPECT_EQ(korvane_host_main_loop_step(60000), 1);
  EXPECT_LE(signals_left, 0);
  std::signal(SIGALRM, SIG_DFL);
}

TEST_F(HostLoopTest, RefusedTaskIsReleased) {
  const auto kept = std::make_shared<int>();
  EXPECT_THROW(call_after(milliseconds(-1), [kept] {}), std::system_error);
  EXPECT_THROW(call_after(std::chrono::hours(1000), [kept] {}), std::system_error);
  EXPECT_THROW(call_after(milliseconds(0), nullptr), std::system_error);
  EXPECT_EQ(kept.use_count(), 1);
  EXPECT_EQ(korvane_host_main_loop_call_after(0, nullptr, nullptr), -EINVAL);
}

}  // namespace
