// The main loop.
#include <stdexcept>

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

TEST_F(HostLoopTest, RefusedTaskIsReleased) {
  const auto kept = std::make_shared<int>();
  EXPECT_THROW(call_after(milliseconds(-1), [kept] {}), std::system_error);
  EXPECT_THROW(call_after(std::chrono::hours(1000), [kept] {}), std::system_error);
  EXPECT_THROW(call_after(milliseconds(0), nullptr), std::system_error);
  EXPECT_EQ(kept.use_count(), 1);
  EXPECT_EQ(korvane_host_main_loop_call_after(0, nullptr, nullptr), -EINVAL);
}

}  // namespace
