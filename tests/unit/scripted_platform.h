/**
 * The platform that the unit tests link the library to.
 *
 * Every platform function is recorded and can be made to fail. Nothing happens
 * by itself: a test delivers the events, queues the parcels that the service
 * sends, and reads what the library sent and logged.
 */
#ifndef KORVANE_TESTS_UNIT_SCRIPTED_PLATFORM_H_
#define KORVANE_TESTS_UNIT_SCRIPTED_PLATFORM_H_

#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
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
// clang-format off
struct bundle_s : std::map<std::string, std::variant<std::string, Texts, Bytes>> { using map::map; };
// clang-format on

// clang-format off
struct event_handler_s { std::string name; event_cb callback; void *user_data; };
// clang-format on

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
  /** Ends all failures and installs the service manager again. */
  void repair();
  /** Lets the calls of a function fail with code, after skip more that do not. */
  void fail(const std::string &function, int code, int skip = 0) {
    failures[function] = {code, skip};
  }
  /** From now on the service answers each request on the main port with this result. */
  void answer(const ParcelValue &result) {
    on_send = [=] { replies.push_back({0, result}); };
  }

  // Events of the newest proxy.
  void report_connected();
  void report_disconnected();
  void report_rejected();
  void deliver(const Parcel &parcel);
  /** Calls the subscribers of an event of the service manager; they may hear another name. */
  void emit(const std::string &suffix, const bundle_s &data, const char *name = nullptr);

  int count(const std::string &function) const;
  std::string take_log() { return std::exchange(log, {}); }

  std::vector<Package> packages;
  std::optional<std::string> app_id, app_version, resource_path;
  std::list<Parcel> replies;      ///< what the service will have sent on the main port
  std::function<void()> on_send;  ///< called for each parcel that was sent

  Texts calls;               ///< each with those of its arguments that matter
  std::vector<Parcel> sent;  ///< on the main port
  std::string log;  ///< lines "<level> <function>: <message>|"; level D, I, E, or P for the proxy's
  std::map<const void *, std::string> live;  ///< handles, with the function that made each
  Texts violations;                          ///< of the platform's contract

  std::map<std::string, std::pair<int, int>> failures;
  std::vector<rpc_port_proxy_h> proxies;
  std::list<event_handler_s> subscriptions;
  std::recursive_mutex lock;
};

/** The one platform; outlives every object of the library. */
ScriptedPlatform &platform();

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
