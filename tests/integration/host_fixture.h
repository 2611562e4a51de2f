/** Tests of the workstation platform, each on its own device directory. */
#ifndef KORVANE_TESTS_HOST_FIXTURE_H_
#define KORVANE_TESTS_HOST_FIXTURE_H_

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "loop/main_loop.h"
#include "temporary_folder.h"

/** Makes one allocation of the platform fail. */
class AllocationFault {
 public:
  /** Runs the test once for each allocation of the platform in it, which then fails. */
  static void in_each_allocation(const std::function<void()> &test);
  /** Runs code of the platform, whose allocations may fail. */
  template <typename Code>
  static auto in_platform(Code code) {
    const Scope scope(true);
    return code();
  }
  /** Runs code of the test inside a callback of the platform. */
  template <typename Code>
  static auto in_test(Code code) {
    const Scope scope(false);
    return code();
  }

  /** Whether an allocation has failed in this run of the test. */
  static bool has_occurred() { return left_ <= 0; }

 private:
  struct Scope {
    explicit Scope(bool may_fail) : before(std::exchange(may_fail_, may_fail)) {}
    Scope(const Scope &) = delete;
    Scope &operator=(const Scope &) = delete;
    ~Scope() { may_fail_ = before; }
    const bool before;
  };
  friend void *allocate(std::size_t size);

  static thread_local bool may_fail_;
  static int left_;  ///< allocations until the one that fails
};

/** The result of a function in a forked child; false when the child crashes. */
bool in_child(const std::function<bool()> &function);

class HostTest : public ::testing::Test {
 protected:
  using Log = std::vector<std::string>;

  HostTest();
  ~HostTest() override;

  static korvane::host::MainLoop &loop() { return korvane::host::MainLoop::instance(); }
  /** Serves all pending events. Local sockets deliver at once, so no further event follows. */
  static void run_idle();

  const TemporaryFolder folder_;
  const std::filesystem::path device_ = folder_.path();
};

#endif  // KORVANE_TESTS_HOST_FIXTURE_H_
