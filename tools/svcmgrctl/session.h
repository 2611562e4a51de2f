#ifndef KORVANE_SVCMGRCTL_SESSION_H_
#define KORVANE_SVCMGRCTL_SESSION_H_

#include <chrono>
#include <exception>
#include <functional>
#include <korvane_svcmgr.hpp>
#include <optional>
#include <string>

#include "output.h"

namespace korvane::svcmgrctl {

/** A time from now on, or none at all. */
class Deadline {
 public:
  Deadline() = default;
  explicit Deadline(double seconds);

  /** Lets the time begin again. */
  void restart();
  /** Milliseconds that are left, at least 0; -1 when there is no end. */
  int remaining() const;
  bool has_passed() const { return remaining() == 0; }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::duration length_ = {};
  std::optional<Clock::time_point> end_;
};

/** What the service manager does for a while, and an application follows. */
enum class Work { kAgentUpdate, kModelChange };

/**
 * The tool's one connection, and the time that the command may take. Every member function throws a
 * Failure, or the library's error, when it cannot do what it says, that time included. The
 * connection ends with the session.
 */
class Session {
 public:
  /** is_reported: by the library; it keeps to itself what belongs to an announced update. */
  using ConnectionListener =
      std::function<void(korvane_svcmgr_connection_state_e state, bool is_reported)>;

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
   * so and ends with status 1. A call that fails because the connection was lost says that.
   */
  template <typename Call>
  void call(Call library_call) {
    try {
      const Watchdog watchdog(*this);
      check(library_call());
    } catch (const std::system_error &) {
      check_connection();
      throw;
    }
  }

  using Condition = std::function<bool()>;
  /** Delivers events until the answer has come, which needs the connection, or an interruption. */
  void wait_for_answer(const Condition &has_come);
  /**
   * Delivers events until work that the service manager does has ended. An end of the wait before
   * that, by a signal too, is told to be none of the work.
   */
  void wait_for_end(const Condition &has_ended, Work work);
  /** A report of the work came: the time begins again. */
  void restart_time();

  /** From now on SIGINT and SIGTERM do not kill the process but end the waits. */
  void catch_interruptions();
  /**
   * Delivers events until the time given, an interruption, or until it was enough. Fails when the
   * device directory is removed.
   */
  void watch(const Deadline &end, const Condition &is_enough = nullptr);

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
  void set_state(korvane_svcmgr_connection_state_e state, bool is_reported);
  bool is_connected() const { return state_ == SVCMGR_CONNECTION_CONNECTED; }
  void look_at_connection();
  void check_connection();
  bool deliver_event(int timeout_ms);
  /** Delivers an event before the deadline; on a terminal, a long silence is explained once. */
  void await_event(const std::string &consequence = "");

  const Output &output_;
  Deadline deadline_;
  Deadline silence_;  ///< until it is explained
  std::optional<korvane_svcmgr_connection_state_e> state_;
  bool is_state_reported_ = false;
  ConnectionListener listener_;
  std::exception_ptr callback_error_;
};

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_SESSION_H_
