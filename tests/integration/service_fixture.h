/** Tests against a service manager in another process: an emulator on its own device. */
#ifndef KORVANE_TESTS_SERVICE_FIXTURE_H_
#define KORVANE_TESTS_SERVICE_FIXTURE_H_

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "korvane_svcmgr.h"
#include "sockets/unique_fd.h"
#include "temporary_folder.h"

/** The output and the status of a finished program. */
struct Finished {
  int status;  ///< exit status, or minus the signal that ended it
  std::string output;
};

/** Runs a program until it exits; collects standard output and error together. */
Finished run_program(const std::vector<std::string> &command);

/** A program that runs beside the test. Killed on destruction. */
class ChildProcess {
 public:
  ChildProcess() = default;
  ChildProcess(const ChildProcess &) = delete;
  ChildProcess &operator=(const ChildProcess &) = delete;
  ~ChildProcess() { end(); }

  void start(const std::vector<std::string> &command);
  /** Its output until it ends. */
  std::string read_all() const;
  /** Waits for a line of output that contains the text. */
  void await_line(const std::string &text) const;
  void send_signal(int signal) const;
  /** Stops the program and waits until it has stopped; SIGCONT continues it. */
  void stop() const;
  /** Kills the program if it runs, and waits for it. */
  void end();
  /** Waits for the end. Returns the exit status, or minus the signal. */
  int wait();
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
  korvane::host::UniqueFd output_;
};

/** A fresh sample device, an emulator on it, and this process as the application. */
class ServiceTest : public ::testing::Test {
 protected:
  ServiceTest();
  ~ServiceTest() override;

  /** Starts the emulator; restarts it if it runs. */
  void start_emulator(const std::vector<std::string> &options = {"--tick", "2"});
  /** The command line of a control command. */
  std::vector<std::string> control_command(std::vector<std::string> arguments) const;
  /** Runs a control command that must succeed, and returns its output. */
  std::string control(const std::vector<std::string> &arguments) const;

  /**
   * Runs the main loop until the condition holds; returns false if it does not. The condition is
   * checked after every event and once more after the wait.
   */
  static bool run_until(const std::function<bool()> &condition, int wait_ms = 60000);
  /** Waits until the service is idle, and serves everything that it has sent. */
  void settle() const;
  /** Connects and waits for the connected event. */
  void connect();
  /** Waits for the next connection event, which must be this one. */
  void expect_event(korvane_svcmgr_connection_state_e state);

  const TemporaryFolder folder_;
  const std::string device_ = folder_.path() / "device";
  ChildProcess emulator_;

 private:
  static void on_connection(int result, korvane_svcmgr_connection_state_e state, void *user_data);

  std::vector<korvane_svcmgr_connection_state_e> connection_events_;
};

#endif  // KORVANE_TESTS_SERVICE_FIXTURE_H_
