/**
 * Subscriptions to platform events, and the base classes of their handlers and exceptions.
 */
#ifndef KORVANE_SVCMGR_ORVEL_EVENT_HANDLER_H_
#define KORVANE_SVCMGR_ORVEL_EVENT_HANDLER_H_

#include <exception>
#include <string>
#include <utility>

#include "api_frame.h"
#include "app_event.h"
#include "log.h"

/** The base of the library's own exceptions. */
class SvcmgrException : public std::exception {};

/** The platform refused a subscription. */
class RegisterEventException : public SvcmgrException {
 public:
  const char *what() const noexcept override { return "Failed to register app event."; }
};

/** The platform refused to end a subscription. */
class DeregisterEventException : public SvcmgrException {
 public:
  const char *what() const noexcept override { return "Failed to deregister app event."; }
};

/** Gives Derived one object per process, created on first use and destroyed at process exit. */
template <typename Derived>
class Singleton {
 public:
  Singleton(const Singleton &) = delete;
  Singleton &operator=(const Singleton &) = delete;

  static Derived &GetInstance() {
    static Derived instance;
    return instance;
  }

 protected:
  Singleton() = default;
  ~Singleton() = default;
};

/**
 * One subscription to one named event.
 *
 * The platform calls the callback with null user data. Destruction does not
 * end a subscription that is in force.
 */
class OrvelEventHandler {
 public:
  OrvelEventHandler(std::string event_name, event_cb event_callback)
      : name(std::move(event_name)), handle(nullptr), callback(event_callback) {}
  OrvelEventHandler(const OrvelEventHandler &) = delete;
  OrvelEventHandler &operator=(const OrvelEventHandler &) = delete;

  /** Subscribes unless a subscription is in force. Throws RegisterEventException. */
  void RegisterEvent() {
    if (handle != nullptr) return;
    const int error = event_add_event_handler(name.c_str(), callback, nullptr, &handle);
    if (error != 0) {
      LOG_ERROR("err: [%d (%s)] - [%s]", error, get_error_message(error), name.c_str());
      throw RegisterEventException();
    }
  }

  /**
   * Ends the subscription, if one is in force; a refused removal is not
   * repeated. Throws DeregisterEventException.
   */
  void DeregisterEvent() {
    if (handle == nullptr) return;
    const int error = event_remove_event_handler(std::exchange(handle, nullptr));
    if (error != 0) {
      LOG_ERROR("err: [%d]", error);
      throw DeregisterEventException();
    }
  }

  bool IsFor(const char *event_name) const { return event_name != nullptr && name == event_name; }

 private:
  std::string name;
  event_handler_h handle;
  event_cb callback;
};

namespace svcmgr {

/** Subscribes. A failure is only logged, under the caller's name. */
inline void subscribe(const Site &site, OrvelEventHandler &subscription) noexcept {
  try {
    subscription.RegisterEvent();
  } catch (...) {
    LOG_ERROR_AT(site, "Failed to register event");
  }
}

/** Ends a subscription. Logs a failure under the caller's name and returns false. */
inline bool unsubscribe(const Site &site, OrvelEventHandler &subscription) noexcept {
  try {
    subscription.DeregisterEvent();
    return true;
  } catch (...) {
    LOG_ERROR_AT(site, "Failed to deregister event");
    return false;
  }
}

/** Runs the body of a platform event callback. Exceptions are logged. */
template <typename Body>
void run_event_callback(const Site &site, Body body) noexcept {
  run_callback(
      body, [&site](const char *text) { LOG_ERROR_AT(site, "Event was not handled: %s", text); });
}

}  // namespace svcmgr

#endif  // KORVANE_SVCMGR_ORVEL_EVENT_HANDLER_H_
