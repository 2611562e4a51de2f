/**
 * The platform that the unit tests link the library to.
 *
 * Every platform function is counted and can be made to fail. Nothing happens by itself: a test
 * delivers the events, queues the parcels that the service sends, and reads what the library sent
 * and logged. Handles live on the heap, so that a sanitizer reports those that are not released. A
 * log line of another form ends the test.
 */
#ifndef KORVANE_TESTS_UNIT_SCRIPTED_PLATFORM_H_
#define KORVANE_TESTS_UNIT_SCRIPTED_PLATFORM_H_

#include <algorithm>
#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "app_event.h"
#include "package.h"
#include "rpc_port.h"

/** An array count in a parcel; distinct from an int32. */
struct Count {
  int value;
  bool operator==(const Count &other) const { return value == other.value; }
};

/** A parcel: the typed values in the order in which they were written. */
using ParcelValue = std::variant<int, bool, std::string, Count>;
using Parcel = std::vector<ParcelValue>;
using Texts = std::vector<std::string>;
using Bytes = std::vector<unsigned char>;

/** The payload of a platform event. */
struct bundle_s : std::map<std::string, std::variant<std::string, Texts, Bytes>> {
  using map::map;
};

struct event_handler_s {
  std::string name;
  event_cb callback;
};

struct rpc_port_parcel_s {
  Parcel values;
  std::size_t next = 0;
};

struct rpc_port_s {
  std::list<Parcel> incoming;
};

struct ScriptedPlatform {
  ScriptedPlatform() { reset(); }

  struct Package {
    std::optional<std::string> id, version;
    std::vector<std::pair<const char *, const char *>> metadata;
  };

  /** Back to a device with a service manager of version 2.3.0 and nothing recorded. */
  void reset();
  /** Forgets the calls, the log and what was sent. */
  void forget();
  /** Ends all failures and installs only the service manager again. */
  void repair();
  /** Adds a package, which may be given metadata. */
  Package &install(const std::string &id, const std::string &version);
  Package &service_manager() { return packages.front(); }
  void uninstall_service_manager() { packages.erase(packages.begin()); }
  /** From now on the service answers each request on the main port with this result. */
  void answer(const ParcelValue &result);

  // Events of the newest proxy.
  void report_connected();
  void report_disconnected();
  void report_rejected();
  void deliver(const Parcel &parcel);
  /** Calls the subscribers of an event of the service manager. */
  void emit(const std::string &suffix, bundle_s data);

  Texts take_log() { return std::exchange(log, {}); }
  /** How often a platform function was called. */
  std::ptrdiff_t count(std::string_view function) const {
    return std::count(calls.begin(), calls.end(), function);
  }
  /** The lines of the log that contain a text. */
  Texts log_of(const std::string &text) const;

  std::vector<Package> packages;
  std::optional<std::string> app_id, app_version, resource_path;
  std::map<std::string, int> failures;  ///< what platform functions return instead of working
  rpc_port_s main_port, callback_port;
  std::function<void()> on_send;      ///< called for each parcel that was sent
  std::function<void()> before_read;  ///< called once, before the next parcel is read from a port
  std::function<void(const std::string &line)> on_log;  ///< called for each line that was logged

  /** The platform functions, dlog_print too, in the order of their calls. */
  std::vector<std::string_view> calls;
  std::vector<Parcel> sent;  ///< on the main port
  Texts log;  ///< lines "<level> <function>: <message>"; level D, I, E, or P for the proxy's

  std::list<rpc_port_proxy_h> proxies;
  std::list<event_handler_s> subscriptions;
  std::recursive_mutex lock;
};

/** The one platform; outlives every object of the library. */
inline ScriptedPlatform &platform = *new ScriptedPlatform;

/** Whose allocations the thread makes: a memory test lets the library's fail. */
struct AllocationScope {
  explicit AllocationScope(bool library) : previous(std::exchange(in_library, library)) {}
  AllocationScope(const AllocationScope &) = delete;
  AllocationScope &operator=(const AllocationScope &) = delete;
  ~AllocationScope() { in_library = previous; }

  static inline thread_local bool in_library = true;
  bool previous;
};

#endif  // KORVANE_TESTS_UNIT_SCRIPTED_PLATFORM_H_
