// The main loop.
#include <poll.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>

#include "host_fixture.h"
#include "korvane_host.hpp"

using namespace korvane::host;
using std::chrono::milliseconds;

namespace {

class HostLoopTest : public HostTest {
 protected:
  /** Whether a foreign loop that watches the descriptor would step this one. */
  bool is_readable(int timeout_ms) const {
    pollfd entry = {loop_.descriptor(), POLLIN, 0};
    return poll(&entry, 1, timeout_ms) == 1;
  }

  MainLoop loop_;
  std::string log_;
};

TEST_F(HostLoopTest, TasksAreCalledFromTheLoopInTheirOrder) {
  call_after(milliseconds(0), [&] {
    call_after(milliseconds(1), korvane_host_main_loop_quit);
    log_ += "first ";
  });
  call_after(milliseconds(0), [&] { log_ += "second"; });
  EXPECT_EQ(log_, "");
  EXPECT_EQ(korvane_host_main_loop_run(), 0);
  EXPECT_EQ(log_, "first second");
}

TEST_F(HostLoopTest, DescriptorIsReadableWhileAnEventIsDue) {
  EXPECT_EQ(loop_.step(1), 0);
  EXPECT_FALSE(is_readable(0));
  loop_.add_timer({}, [] {});
  EXPECT_TRUE(is_readable(60000));
  EXPECT_EQ(loop_.step(0), 1);
  EXPECT_FALSE(is_readable(0));
}

TEST_F(HostLoopTest, HandlerMayStepTheLoop) {
  loop_.add_timer({}, [&] {
    loop_.add_timer({}, [&] { log_ += "inner "; });
    EXPECT_EQ(loop_.step(60000), 1);
    log_ += "outer";
  });
  EXPECT_EQ(loop_.step(60000), 1);
  EXPECT_EQ(log_, "inner outer");
}

TEST_F(HostLoopTest, RemovedTimerIsNotCalledAndAnExceptionEndsNoLoop) {
  loop_.remove(loop_.add_timer({}, [&] { log_ += "removed"; }));
  loop_.add_timer({}, [] { throw std::runtime_error("of a handler"); });
  loop_.add_timer(milliseconds(1), [&] { loop_.quit(); });
  EXPECT_EQ(loop_.run(), 0);
  EXPECT_EQ(log_, "");
}

TEST_F(HostLoopTest, AnotherThreadMayQuitALoopAgainAndAgain) {
  for (int i = 0; i < 2; ++i) {
    std::thread other;
    loop_.add_timer({}, [&] { other = std::thread([&] { loop_.quit(); }); });
    EXPECT_EQ(loop_.run(), 0);
    other.join();
  }
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
