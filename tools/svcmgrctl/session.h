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

/** A limit that starts now, or no limit. */
class Deadline {
 public:
  Deadline() = default;
  explicit Deadline(double seconds);

  /** Starts the time again. */
  void restart();
  /** Remaining milliseconds, at least 0; -1 without a limit. */
  int remaining() const;
  bool has_passed() const { return remaining() == 0; }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::duration length_ = {};
  std::optional<Clock::time_point> end_;
};

/** Work of the service manager whose progress an application can follow. */
enum class Work { kAgentUpdate, kModelChange };

/**
 * The tool's connection and the time limit of the command. Every member function throws a Failure
 * or a library error when it fails or the time is up. The destructor disconnects.
 */
class Session {
 public:
  /** is_reported: whether the library reports the event; it hides those of an announced update. */
  using ConnectionListener =
      std::function<void(korvane_svcmgr_connection_state_e state, bool is_reported)>;

  Session(const Output &output, Deadline deadline);
  ~Session();
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;

  const Output &output() const { return output_; }

  /** Sets the listener for every connection event. Must be called before connect(). */
  void on_connection(ConnectionListener listener) { listener_ = std::move(listener); }

  /** Connects and waits for the outcome, or for an interruption if these are caught. */
  void connect();

  /**
   * Calls a library function. If it still blocks at the deadline, the process prints an error and
   * exits with status 1. If it fails because the connection was lost, the error says so.
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

  /** Fails if the connection was lost, also if the loss was not delivered yet. */
  void check_connection();

  using Condition = std::function<bool()>;
  /** Delivers events until the answer arrives. Fails on a disconnect or an interruption. */
  void wait_for_answer(const Condition &has_come);
  /**
   * Delivers events until work of the service manager has ended. If the wait ends earlier, for
   * example by a signal, the error says that the work continues.
   */
  void wait_for_end(const Condition &has_ended, Work work);
  /** Restarts the time limit; called for each progress report. */
  void restart_time();

  /** From now on SIGINT and SIGTERM end the waits instead of the process. */
  void catch_interruptions();
  /**
   * Delivers events until the deadline, an interruption, or until is_enough returns true. Fails
   * when the device directory is removed.
   */
  void watch(const Deadline &end, const Condition &is_enough = nullptr);

  /** Wraps the body of a callback. The wait that delivers the event rethrows its exception. */
  template <typename Body>
  void guard(Body body) noexcept {
    try {
      body();
    } catch (...) {
      callback_error_ = std::current_exception();
    }
  }

 private:
  /** Limits a blocking call: a timer signal ends the process. */
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
  bool deliver_event(int timeout_ms);
  /** Delivers an event before the deadline. On a terminal, explains a long wait once. */
  void await_event(const std::string &consequence = "");

  const Output &output_;
  Deadline deadline_;
  Deadline silence_;  ///< when to explain a long wait
  std::optional<korvane_svcmgr_connection_state_e> state_;
  bool is_state_reported_ = false;
  ConnectionListener listener_;
  std::exception_ptr callback_error_;
};

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_SESSION_H_
