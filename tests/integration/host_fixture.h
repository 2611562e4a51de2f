/** Tests of the workstation platform, each on a device directory of its own. */
#ifndef KORVANE_TESTS_HOST_FIXTURE_H_
#define KORVANE_TESTS_HOST_FIXTURE_H_

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "main_loop.h"

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

  /** Serves what is due. Local sockets hold nothing back: this is all there will be. */
  static void run_idle() {
    while (loop().step(0) == 1) {
    }
  }

  std::filesystem::path device_;
};

#endif  // KORVANE_TESTS_HOST_FIXTURE_H_
