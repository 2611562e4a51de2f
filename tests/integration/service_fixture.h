/** Tests against a service manager in another process: the emulator on a device of its own. */
#ifndef KORVANE_TESTS_SERVICE_FIXTURE_H_
#define KORVANE_TESTS_SERVICE_FIXTURE_H_

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "korvane_svcmgr.h"

/** What a finished program printed, and how it ended. */
struct Finished {
  int status;  ///< exit status, or minus the signal that ended it
  std::string output;
};

/** Runs a program to its end; its standard output and error are collected together. */
Finished run_program(const std::vector<std::string> &command);

/** A program that runs beside the test, and ends with it; at the latest on destruction. */
class ChildProcess {
 public:
  ChildProcess() = default;
  ChildProcess(const ChildProcess &) = delete;
  ChildProcess &operator=(const ChildProcess &) = delete;
  ~ChildProcess();

  void start(const std::vector<std::string> &command);
  /** What it prints until it ends. */
  std::string read_all();
  /** The next line of its output; empty when there is none any more. */
  std::string read_line();
  /** Waits for a line that holds the text. */
  void await_line(const std::string &text);
  void send_signal(int signal) const;
  /** Stops it, and returns when it has stopped; SIGCONT lets it go on. */
  void stop() const;
  /** Kills it, if it runs, and waits for it. */
  void end();
  /** Waits for the end; the exit status, or minus the signal. */
  int wait();
  /** Whether it has ended by itself, and waits to be waited for. */
  bool has_ended() const;
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
  int output_ = -1;
};

/** A fresh sample device, an emulator on it, and this process as the application. */
class ServiceTest : public ::testing::Test {
 protected:
  using ConnectionEvent = std::pair<int, korvane_svcmgr_connection_state_e>;

  ServiceTest();
  ~ServiceTest() override;

  /** Starts the emulator, anew if one runs. */
  void start_emulator(const std::vector<std::string> &options = {"--tick", "2"});
  /** What tells the emulator to do something. */
  std::vector<std::string> control_command(std::vector<std::string> arguments) const;
  /** A control command that is expected to succeed; its output. */
  std::string control(const std::vector<std::string> &arguments);

  /**
   * Runs the main loop until the condition holds; false when it does not come about. A condition
   * that changes without an event of the loop is looked at again after the wait.
   */
  static bool run_until(const std::function<bool()> &condition, int wait_ms = 60000);
  /** Waits until the service has nothing left to do, and serves all that it has sent. */
  void settle();
  /** Connects, and waits for the event that tells so. */
  void connect();
  /** Waits for an event of the connection, which must be this one. */
  void expect_told(korvane_svcmgr_connection_state_e state);

  static void on_connection(int result, korvane_svcmgr_connection_state_e state, void *user_data);

  std::string device_;
  ChildProcess emulator_;
  std::vector<ConnectionEvent> connection_events_;
};

#endif  // KORVANE_TESTS_SERVICE_FIXTURE_H_
