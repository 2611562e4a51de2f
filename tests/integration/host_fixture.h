/** Tests of the workstation platform, each on its own device directory. */
#ifndef KORVANE_TESTS_HOST_FIXTURE_H_
#define KORVANE_TESTS_HOST_FIXTURE_H_

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "loop/main_loop.h"

/** Makes one allocation of the platform fail. */
class ScarceMemory {
 public:
  /** Runs the story once for each allocation in it, which then fails; ends when none fails. */
  static void tell(const std::function<void()> &story);
  /** Runs a part of the story in which allocations may fail; they succeed elsewhere. */
  template <typename Part>
  static void in_platform(Part part) {
    run(part, true);
  }
  template <typename Part>
  static void in_test(Part part) {
    run(part, false);
  }

  /** Whether an allocation of this run of the story has failed. */
  static bool has_failed() { return left_ <= 0; }

 private:
  template <typename Part>
  static void run(Part part, bool is_scarce) {
    const bool before = std::exchange(is_scarce_, is_scarce);
    part();
    is_scarce_ = before;
  }
  friend void *allocate(std::size_t size);

  static thread_local bool is_scarce_;
  static int left_;  ///< allocations until the one that fails
};

/** Expects a child process to exit with 0. */
void expect_success(pid_t child);

class HostTest : public ::testing::Test {
 protected:
  using Log = std::vector<std::string>;

  HostTest() {
    setenv("KORVANE_LOG", "none", 1);
    std::string name = (std::filesystem::temp_directory_path() / "host-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) std::abort();
    device_ = name;
    setenv("KORVANE_DEVICE", name.c_str(), 1);
  }

  ~HostTest() override {
    unsetenv("KORVANE_DEVICE");
    std::error_code ignored;
    std::filesystem::remove_all(device_, ignored);
  }

  static korvane::host::MainLoop &loop() { return korvane::host::MainLoop::instance(); }

  /** Serves all pending events. Local sockets deliver at once, so no further event follows. */
  static void run_idle() {
    int served = 1;
    while (served == 1) served = loop().step(0);
    EXPECT_EQ(served, 0);
  }

  std::filesystem::path device_;
};

#endif  // KORVANE_TESTS_HOST_FIXTURE_H_
