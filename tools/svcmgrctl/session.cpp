#include "session.h"

#include <korvane_host.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

namespace korvane::svcmgrctl {

namespace {

volatile sig_atomic_t g_interrupted = 0;

/** What the alarm's handler writes; filled before the alarm is set. */
struct {
  std::string text;
  int descriptor = STDERR_FILENO;
} g_last_words;

CodeText time_is_up() {
  return {-ETIMEDOUT, "TIMEOUT", "the time was up before the command was done; see --timeout"};
}

[[noreturn]] void fail_for_lost_connection() {
  CodeText lost = describe_error(SVCMGR_ERROR_NOT_CONNECTED);
  lost.meaning = "the connection was lost before the answer came";
  throw Failure(lost);
}

void install_handler(int signal_number, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigaction(signal_number, &action, nullptr);
}

void handle_interruption(int) {
  g_interrupted = 1;
  korvane_host_main_loop_quit();
}

void handle_alarm(int) {
  [[maybe_unused]] const ssize_t written =
      write(g_last_words.descriptor, g_last_words.text.data(), g_last_words.text.size());
  _exit(1);
}

/** Sets the alarm; 0 takes it back. */
void set_alarm(int milliseconds) {
  itimerval timer = {};
  timer.it_value.tv_sec = milliseconds / 1000;
  timer.it_value.tv_usec = suseconds_t{milliseconds % 1000} * 1000;
  setitimer(ITIMER_REAL, &timer, nullptr);
}

}  // namespace

Deadline::Deadline(double seconds)
    : end_(Clock::now() +
           std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds))) {}

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
  g_last_words = {output.failure_text(time_is_up()), output.failure_descriptor()};
  install_handler(SIGALRM, handle_alarm);
}

Session::~Session() {
  korvane_svcmgr_disconnect();
}

void Session::handle_connection(int, korvane_svcmgr_connection_state_e state, void *data) {
  Session &session = *static_cast<Session *>(data);
  session.guard([&] {
    session.state_ = state;
    if (session.listener_) session.listener_(state);
  });
}

void Session::connect() {
  call([this] { return korvane_svcmgr_connect(handle_connection, this); });
  while (!state_ && g_interrupted == 0) deliver_event(deadline_.remaining());
  if (state_ == SVCMGR_CONNECTION_REJECTED) check(SVCMGR_ERROR_PERMISSION_DENIED);
  if (state_ == SVCMGR_CONNECTION_DISCONNECTED) fail_for_lost_connection();
}

void Session::wait_until(const std::function<bool()> &done) {
  while (!done()) {
    if (state_ != SVCMGR_CONNECTION_CONNECTED) fail_for_lost_connection();
    deliver_event(deadline_.remaining());
  }
}

void Session::catch_interruptions() {
  korvane_host_main_loop_fd();  // makes the loop, which a signal handler could not
  install_handler(SIGINT, handle_interruption);
  install_handler(SIGTERM, handle_interruption);
}

void Session::watch(const Deadline &end) {
  deadline_ = Deadline();
  while (g_interrupted == 0 && !end.has_passed()) deliver_event(end.remaining());
}

void Session::deliver_event(int timeout_ms) {
  if (deadline_.has_passed()) throw Failure(time_is_up());
  const int result = korvane_host_main_loop_step(timeout_ms);
  if (callback_error_) std::rethrow_exception(std::exchange(callback_error_, nullptr));
  if (result < 0 && result != -EINTR) {
    throw Failure({result, "MAIN_LOOP", std::strerror(-result)});
  }
}

}  // namespace korvane::svcmgrctl
