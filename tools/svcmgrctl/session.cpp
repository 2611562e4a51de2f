#include "session.h"

#include <korvane_host.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <iostream>
#include <utility>

#include "device_directory.h"

namespace korvane::svcmgrctl {

namespace {

constexpr int kSignalStatus = 128;  ///< added to the number of the signal
constexpr double kLongSilence = 1;
constexpr int kDeviceCheckMs = 500;
constexpr char kTryAgain[] = "try again";

volatile sig_atomic_t g_interruption = 0;  ///< the received signal, or 0

/** Written by the SIGALRM handler, set before the timer starts. */
struct {
  std::string text;
  int descriptor = STDERR_FILENO;
} g_timeout_message;

CodeText time_is_up(const std::string &consequence = "") {
  return {-ETIMEDOUT, "TIMEOUT",
          "the service manager did not answer within the time limit (see --timeout)" + consequence};
}

/**
 * The end of an agent update is reported only to processes that received its start; the end of a
 * change of models is reported to all.
 */
std::string work_continues(Work work) {
  const std::string text = "; the service manager continues the work, ";
  return text + (work == Work::kAgentUpdate ? "but no later command can report its end"
                                            : "and \"svcmgrctl watch\" shows its end");
}

[[noreturn]] void fail_for_interruption(const std::string &consequence) {
  throw Failure({-EINTR, "INTERRUPTED", "interrupted" + consequence},
                kSignalStatus + g_interruption);
}

void install_handler(int signal_number, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigaction(signal_number, &action, nullptr);
}

void handle_interruption(int signal_number) {
  g_interruption = signal_number;
  korvane_host_main_loop_quit();
}

void handle_alarm(int) {
  [[maybe_unused]] const ssize_t written = write(
      g_timeout_message.descriptor, g_timeout_message.text.data(), g_timeout_message.text.size());
  _exit(kFailureStatus);
}

/** Starts the timer; 0 stops it. */
void set_alarm(int milliseconds) {
  itimerval timer = {};
  timer.it_value.tv_sec = milliseconds / 1000;
  timer.it_value.tv_usec = suseconds_t{milliseconds % 1000} * 1000;
  setitimer(ITIMER_REAL, &timer, nullptr);
}

[[noreturn]] void fail_for_lost_connection(bool is_reported, const std::string &advice) {
  const std::string cause =
      is_reported ? "the connection was lost" : "the service manager updated itself";
  throw Failure(SVCMGR_ERROR_NOT_CONNECTED, cause + ", so there will be no answer; " + advice);
}

}  // namespace

Deadline::Deadline(double seconds)
    : length_(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds))),
      end_(Clock::now() + length_) {}

void Deadline::restart() {
  if (end_) end_ = Clock::now() + length_;
}

int Deadline::remaining() const {
  if (!end_) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*end_ - Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

Session::Watchdog::Watchdog(const Session &session) {
  const int remaining = session.deadline_.remaining();
  if (remaining == 0) throw Failure(time_is_up());
  if (remaining > 0) set_alarm(remaining);
}

Session::Watchdog::~Watchdog() {
  set_alarm(0);
}

Session::Session(const Output &output, Deadline deadline) : output_(output), deadline_(deadline) {
  g_timeout_message = {output.failure_text(time_is_up()), output.failure_descriptor()};
  install_handler(SIGALRM, handle_alarm);
  if (isatty(STDERR_FILENO) != 0) silence_ = Deadline(kLongSilence);
}

Session::~Session() {
  korvane_svcmgr_disconnect();
}

void Session::handle_connection(int, korvane_svcmgr_connection_state_e state, void *data) {
  Session &session = *static_cast<Session *>(data);
  session.guard([&] { session.set_state(state, true); });
}

void Session::set_state(korvane_svcmgr_connection_state_e state, bool is_reported) {
  state_ = state;
  is_state_reported_ = is_reported;
  if (listener_) listener_(state, is_reported);
}

void Session::connect() {
  try {
    call([this] { return korvane_svcmgr_connect(handle_connection, this); });
  } catch (const std::system_error &error) {
    if (error.code() != SVCMGR_ERROR_CONNECTION_FAILED) throw;
    const std::string device = DeviceDirectory::current().path().string();
    throw Failure(SVCMGR_ERROR_CONNECTION_FAILED,
                  "no service manager runs on " + device +
                      "; start one with \"svcmgr-emulator --device " + device + "\"");
  }
  while (!state_ && g_interruption == 0) {
    await_event();
  }
  if (state_ == SVCMGR_CONNECTION_REJECTED) {
    throw Failure(SVCMGR_ERROR_PERMISSION_DENIED,
                  "the service manager refuses the connection; an emulator accepts it after "
                  "\"svcmgr-emulator ctl reject off\"");
  }
  if (state_ == SVCMGR_CONNECTION_DISCONNECTED) fail_for_lost_connection(true, kTryAgain);
}

void Session::wait_for_answer(const Condition &has_come) {
  while (!has_come()) {
    if (!is_connected()) fail_for_lost_connection(is_state_reported_, kTryAgain);
    if (g_interruption != 0) {
      fail_for_interruption(" before the service manager answered; the answer will be dropped");
    }
    await_event();
  }
}

void Session::wait_for_end(const Condition &has_ended, Work work) {
  catch_interruptions();
  while (!has_ended()) {
    const bool is_loss = is_state_reported_ || work != Work::kAgentUpdate;
    if (!is_connected() && is_loss) {
      fail_for_lost_connection(is_state_reported_, "check what has changed before you try again");
    }
    if (g_interruption != 0) fail_for_interruption(work_continues(work));
    await_event(work_continues(work));
  }
}

void Session::restart_time() {
  deadline_.restart();
  silence_ = Deadline();
}

void Session::catch_interruptions() {
  install_handler(SIGINT, handle_interruption);
  install_handler(SIGTERM, handle_interruption);
}

void Session::watch(const Deadline &end, const Condition &is_enough) {
  deadline_ = Deadline();
  while (!(is_enough && is_enough()) && g_interruption == 0 && !end.has_passed()) {
    const int remaining = end.remaining();
    deliver_event(remaining < 0 ? kDeviceCheckMs : std::min(remaining, kDeviceCheckMs));
    DeviceDirectory::current().check_existence();
  }
}

// A disconnect and the following connection are two events. A query after each event also detects
// those that the library does not report.
void Session::look_at_connection() {
  if (!state_) return;
  bool updating = false;
  const int result = korvane_svcmgr_is_being_updated(&updating);
  const bool has_connection = result == SVCMGR_ERROR_NONE;
  const bool is_known = has_connection || result == SVCMGR_ERROR_NOT_CONNECTED;
  if (!is_known || has_connection == is_connected()) return;
  set_state(has_connection ? SVCMGR_CONNECTION_CONNECTED : SVCMGR_CONNECTION_DISCONNECTED, false);
}

void Session::check_connection() {
  while (is_connected() && !deadline_.has_passed() && deliver_event(0)) {
  }
  if (state_ && !is_connected()) fail_for_lost_connection(is_state_reported_, kTryAgain);
}

void Session::await_event(const std::string &consequence) {
  if (silence_.has_passed()) {
    std::cerr << "svcmgrctl: waiting for the service manager…\n";
    silence_ = Deadline();
  }
  if (deadline_.has_passed()) throw Failure(time_is_up(consequence));
  const int remaining = deadline_.remaining();
  const int silence = silence_.remaining();
  const bool silence_is_next = silence >= 0 && (remaining < 0 || silence < remaining);
  if (deliver_event(silence_is_next ? silence : remaining)) silence_.restart();
}

bool Session::deliver_event(int timeout_ms) {
  const int result = korvane_host_main_loop_step(timeout_ms);
  if (callback_error_) std::rethrow_exception(std::exchange(callback_error_, nullptr));
  if (result < 0) {
    throw Failure({result, "MAIN_LOOP", std::strerror(-result)});
  }
  look_at_connection();
  return result > 0;
}

}  // namespace korvane::svcmgrctl
