#ifndef KORVANE_SVCMGRCTL_SESSION_H_
#define KORVANE_SVCMGRCTL_SESSION_H_

#include <korvane_svcmgr.h>

#include <chrono>
#include <exception>
#include <functional>
#include <optional>
#include <string>

#include "output.h"

namespace korvane::svcmgrctl {

/** A point in time, or none at all. */
class Deadline {
 public:
  Deadline() = default;
  explicit Deadline(double seconds);

  /** Milliseconds that are left, at least 0; -1 when there is no end. */
  int remaining() const;
  bool has_passed() const { return remaining() == 0; }

 private:
  using Clock = std::chrono::steady_clock;
  std::optional<Clock::time_point> end_;
};

/**
 * The tool's one connection, and the time that the command may take. Every member function throws a
 * Failure when it cannot do what it says, that time included. The connection ends with the session.
 */
class Session {
 public:
  using ConnectionListener = std::function<void(korvane_svcmgr_connection_state_e)>;

  Session(const Output &output, Deadline deadline);
  ~Session();
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;

  const Output &output() const { return output_; }

  /** Hears every event of the connection. Set before connect(). */
  void on_connection(ConnectionListener listener) { listener_ = std::move(listener); }

  /** Connects and waits for the outcome, or for an interruption where these are caught. */
  void connect();

  /**
   * Makes a call of the library. When the call is still blocking at the deadline, the process says
   * so and ends with status 1.
   */
  template <typename Call>
  void call(Call library_call) {
    const Watchdog watchdog(*this);
    check(library_call());
  }

  /** Delivers events until done() is true; the connection must last as long. */
  void wait_until(const std::function<bool()> &done);

  /** From now on SIGINT and SIGTERM do not kill the process but end watch(). */
  void catch_interruptions();

  /** Delivers events until the time given, or an interruption. */
  void watch(const Deadline &end);

  /** For the body of a callback: what it throws comes out of the wait that delivered the event. */
  template <typename Body>
  void guard(Body body) noexcept {
    try {
      body();
    } catch (...) {
      callback_error_ = std::current_exception();
    }
  }

 private:
  /** Bounds a blocking call: an alarm that ends the process. */
  class Watchdog {
   public:
    explicit Watchdog(const Session &session);
    ~Watchdog();
    Watchdog(const Watchdog &) = delete;
    Watchdog &operator=(const Watchdog &) = delete;
  };

  static void handle_connection(int result, korvane_svcmgr_connection_state_e state, void *session);
  void deliver_event(int timeout_ms);

  const Output &output_;
  Deadline deadline_;
  std::optional<korvane_svcmgr_connection_state_e> state_;
  ConnectionListener listener_;
  std::exception_ptr callback_error_;
};

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_SESSION_H_
