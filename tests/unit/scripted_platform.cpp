#include "scripted_platform.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <type_traits>

#include "app.h"
#include "dlog.h"

template <typename Callback>
using Registered = std::pair<Callback, void *>;

// clang-format off
struct rpc_port_s { std::list<Parcel> *incoming; };
struct rpc_port_parcel_s { Parcel values; std::size_t next = 0; };
struct package_info_s : ScriptedPlatform::Package {};
struct app_info_s : ScriptedPlatform::Package {};
// clang-format on

struct rpc_port_proxy_s {
  std::list<Parcel> events;
  rpc_port_s ports[2] = {{&platform().replies}, {nullptr}};
  Registered<rpc_port_proxy_connected_event_cb> connected{};
  Registered<rpc_port_proxy_disconnected_event_cb> disconnected{};
  Registered<rpc_port_proxy_rejected_event_cb> rejected{};
  Registered<rpc_port_proxy_received_event_cb> received{};
};

namespace {

constexpr int kNoSuchPackage = static_cast<int>(0xFEEB0071), kFailed = -5;

/** One call of a platform function. */
struct Call {
  explicit Call(const char *function, std::initializer_list<const char *> arguments = {}) {
    std::string text = function;
    for (const char *argument : arguments) text += std::string(" ") + argument;
    platform().calls.push_back(text);
    const auto failure = platform().failures.find(function);
    if (failure == platform().failures.end() || failure->second.second-- > 0) return;
    result = failure->second.first;
  }

  const AllocationScope library{false};
  const std::lock_guard<std::recursive_mutex> guard{platform().lock};
  int result = 0;
};

/** Begins a platform function, and ends it when the test lets it fail. */
#define SCRIPTED(...)                       \
  const Call call(__func__, {__VA_ARGS__}); \
  if (call.result != 0) return call.result

/** Calls into the library; no exception may come out. */
template <typename Callback, typename... Arguments>
auto call_library(Callback callback, Arguments... arguments) {
  const AllocationScope library(true);
  try {
    return callback(arguments...);
  } catch (...) {
    platform().violations.emplace_back("an exception came out of a callback");
  }
  return decltype(callback(arguments...))();
}

template <typename Event, typename... Extra>
void report(Event event, Extra... extra) {
  const AllocationScope library(false);
  if (platform().proxies.empty()) return platform().violations.emplace_back("no proxy"), void();
  const auto [callback, user_data] = platform().proxies.back()->*event;
  if (callback != nullptr) call_library(callback, "endpoint", "port", extra..., user_data);
}

template <typename Handle>
int make(const char *function, Handle *out, std::remove_pointer_t<Handle> content) {
  const AllocationScope library(false);
  *out = new std::remove_pointer_t<Handle>(std::move(content));
  platform().live[*out] = function;
  return 0;
}

template <typename Handle>
int destroy(const char *function, Handle handle) {
  SCRIPTED();
  const bool known = platform().live.erase(handle) == 1;
  if (!known) platform().violations.emplace_back(function);
  if (known) delete handle;
  return 0;
}

template <typename Value>
const Value *read(rpc_port_parcel_h parcel) {
  if (parcel->next == parcel->values.size()) return nullptr;
  const auto *value = std::get_if<Value>(&parcel->values[parcel->next]);
  if (value != nullptr) ++parcel->next;
  return value;
}

template <typename Value>
const Value *find_in(bundle_h bundle, const char *key) {
  const AllocationScope library(false);
  const auto found = bundle->find(key);
  return found == bundle->end() ? nullptr : std::get_if<Value>(&found->second);
}

template <typename Handle>
int look_up(const char *function, const char *id, Handle *out) {
  const AllocationScope library(false);
  for (const auto &package : platform().packages) {
    if (package.id == id) return make(function, out, {package});
  }
  return kNoSuchPackage;
}

/** Takes "<file>: <function>(<line>) > <message>" out of its wrapping; false when it is none. */
bool record_log(int priority, const std::string &tag, const std::string &text) {
  const bool proxy = tag == "RPC_PORT_PROXY", plain = proxy || priority == 3, info = priority == 4;
  const std::string before = proxy ? "" : plain ? " " : info ? "\033[0;32m " : "\033[0;31m ";
  const std::string after = plain ? "" : "\033[0;m", level = proxy   ? "P "
                                                             : plain ? "D "
                                                             : info  ? "I "
                                                                     : "E ";
  char function[64];
  int length = 0;
  std::sscanf(text.c_str() + before.size(), "%*[^: ]: %63[^(](%*d) >%n", function, &length);
  const std::size_t start = before.size() + static_cast<std::size_t>(length) + 1;
  if (length == 0 || text.size() < start + after.size()) return false;
  const std::string message = text.substr(start, text.size() - start - after.size());
  platform().log += level + function + ": " + message + "|";
  return text.compare(0, before.size(), before) == 0 && text.substr(start) == message + after &&
         (proxy ? priority == 6 : tag == "SERVICE_MANAGER_CLIENT");
}

}  // namespace

ScriptedPlatform &platform() {
  static auto *instance = new ScriptedPlatform;
  return *instance;
}

// clang-format off
void ScriptedPlatform::reset() {
  app_id = "org.example.app", app_version = "1.2.3", on_send = nullptr;
  repair(), replies.clear(), subscriptions.clear(), violations.clear(), forget(); }

void ScriptedPlatform::report_connected() {
  for (const rpc_port_proxy_h proxy : proxies) proxy->ports[1].incoming = &proxy->events;
  report(&rpc_port_proxy_s::connected, proxies.empty() ? nullptr : proxies.back()->ports); }

void ScriptedPlatform::deliver(const Parcel &parcel) {
  const AllocationScope library(false);
  if (proxies.empty() || proxies.back()->ports[1].incoming == nullptr) return;
  proxies.back()->events.push_back(parcel), report(&rpc_port_proxy_s::received); }
// clang-format on

void ScriptedPlatform::emit(const std::string &suffix, const bundle_s &data, const char *name) {
  const AllocationScope library(false);
  const std::string full_name = "event." SVCMGR_APP_ID + suffix;
  bundle_s copy = data;
  for (const auto &[event, callback, user_data] : std::list(subscriptions)) {
    if (event == full_name) call_library(callback, name ? name : event.c_str(), &copy, user_data);
  }
}

int ScriptedPlatform::count(const std::string &function) const {
  int matches = 0;
  for (const auto &call : calls) matches += call.substr(0, call.find(' ')) == function;
  return matches;
}

int dlog_print(int priority, const char *tag, const char *format, ...) {
  const int error = errno;
  const AllocationScope library(false);
  const std::lock_guard<std::recursive_mutex> guard(platform().lock);
  char text[8192];
  va_list values;
  va_start(values, format);
  errno = error, std::vsnprintf(text, sizeof(text), format, values);
  va_end(values);
  if (!record_log(priority, tag, text)) platform().violations.emplace_back(text);
  return 0;
}

// One line for each function of a family.
// clang-format off
void ScriptedPlatform::repair() { failures.clear(); packages = {{SVCMGR_APP_ID, "2.3.0", {}}}; }
void ScriptedPlatform::forget() { calls.clear(); sent.clear(); log.clear(); }
void ScriptedPlatform::report_disconnected() { report(&rpc_port_proxy_s::disconnected); }
void ScriptedPlatform::report_rejected() { report(&rpc_port_proxy_s::rejected); }

#define SCRIPTED_EVENT(event) \
  int rpc_port_proxy_add_##event##_event_cb(rpc_port_proxy_h proxy, rpc_port_proxy_##event##_event_cb cb, void *user_data) { \
    SCRIPTED(); proxy->event = {cb, user_data}; return 0; }
SCRIPTED_EVENT(connected)
SCRIPTED_EVENT(disconnected)
SCRIPTED_EVENT(rejected)
SCRIPTED_EVENT(received)

#define SCRIPTED_VALUE(name, In, Value, Out, result) \
  int rpc_port_parcel_write_##name(rpc_port_parcel_h parcel, In in) { SCRIPTED(); parcel->values.emplace_back(Value{in}); return 0; } \
  int rpc_port_parcel_read_##name(rpc_port_parcel_h parcel, Out *out) { \
    SCRIPTED(); const auto *value = read<Value>(parcel); if (value != nullptr) *out = result; return value != nullptr ? 0 : kFailed; }
SCRIPTED_VALUE(int32, int, int, int, *value)
SCRIPTED_VALUE(bool, bool, bool, bool, *value)
SCRIPTED_VALUE(string, const char *, std::string, char *, strdup(value->c_str()))
SCRIPTED_VALUE(array_count, int, Count, int, value->value)

#define SCRIPTED_TEXT(function, value, ...) \
  int function(__VA_ARGS__) { SCRIPTED(); if (!value) return kFailed; *text = strdup(value->c_str()); return 0; }
SCRIPTED_TEXT(app_get_id, platform().app_id, char **text)
SCRIPTED_TEXT(app_get_version, platform().app_version, char **text)
SCRIPTED_TEXT(package_info_get_package, package->id, package_info_h package, char **text)
SCRIPTED_TEXT(package_info_get_version, package->version, package_info_h package, char **text)

#define SCRIPTED_INFO(name) \
  int name##_create(const char *id, name##_h *info) { SCRIPTED(); return look_up(__func__, id, info); } \
  int name##_destroy(name##_h info) { return destroy(__func__, info); }
SCRIPTED_INFO(package_info)
SCRIPTED_INFO(app_info)

int rpc_port_proxy_create(rpc_port_proxy_h *proxy) {
  SCRIPTED(); make(__func__, proxy, {}); platform().proxies.push_back(*proxy); return 0; }
int rpc_port_proxy_destroy(rpc_port_proxy_h proxy) {
  auto &all = platform().proxies; all.erase(std::remove(all.begin(), all.end(), proxy), all.end());
  return destroy(__func__, proxy); }
int rpc_port_proxy_connect(rpc_port_proxy_h, const char *app_id, const char *name) {
  SCRIPTED(app_id, name); return 0; }
int rpc_port_proxy_connect_sync(rpc_port_proxy_h proxy, const char *app_id, const char *name) {
  SCRIPTED(); const int result = rpc_port_proxy_connect(proxy, app_id, name);
  if (result == 0) platform().report_connected();
  return result; }
int rpc_port_proxy_get_port(rpc_port_proxy_h proxy, int type, rpc_port_h *port) {
  SCRIPTED(); *port = &proxy->ports[type]; return 0; }
int rpc_port_parcel_create(rpc_port_parcel_h *parcel) { SCRIPTED(); return make(__func__, parcel, {}); }
int rpc_port_parcel_destroy(rpc_port_parcel_h parcel) { return destroy(__func__, parcel); }
int rpc_port_parcel_create_from_port(rpc_port_parcel_h *parcel, rpc_port_h port) {
  SCRIPTED(); if (port->incoming->empty()) return kFailed;
  make(__func__, parcel, {port->incoming->front()}); port->incoming->pop_front(); return 0; }
int rpc_port_parcel_send(rpc_port_parcel_h parcel, rpc_port_h port) {
  SCRIPTED(); if (port->incoming != &platform().replies) platform().violations.emplace_back(__func__);
  platform().sent.push_back(parcel->values); if (platform().on_send) platform().on_send();
  return 0; }

int bundle_get_str(bundle_h bundle, const char *key, char **text) {
  static char unread[] = "not read";
  return find_in<std::string>(bundle, key) != nullptr ? (*text = unread, 0) : kFailed; }
const char **bundle_get_str_array(bundle_h bundle, const char *key, int *count) {
  static const char *values[] = {"first", "second"}; *count = 2;
  return find_in<Texts>(bundle, key) != nullptr ? values : nullptr; }
int bundle_get_byte(bundle_h bundle, const char *key, void **bytes, std::size_t *size) {
  const auto *value = find_in<Bytes>(bundle, key); if (value == nullptr) return kFailed;
  *bytes = const_cast<unsigned char *>(value->data()); *size = value->size(); return 0; }

int event_add_event_handler(const char *name, event_cb callback, void *data, event_handler_h *handler) {
  SCRIPTED(name); *handler = &platform().subscriptions.emplace_back(event_handler_s{name, callback, data});
  platform().live[*handler] = __func__; return 0; }
// A refused removal leaves the subscription in force, but the library has no handle to it.
int event_remove_event_handler(event_handler_h handler) {
  platform().live.erase(handler); SCRIPTED();
  platform().subscriptions.remove_if([&](const auto &known) { return &known == handler; }); return 0; }

int package_manager_foreach_package_info(package_manager_package_info_cb callback, void *data) {
  SCRIPTED(); for (const auto &package : platform().packages) {
    package_info_s info{package}; if (!call_library(callback, &info, data)) break; }
  return 0; }
int app_info_foreach_metadata(app_info_h app, app_info_metadata_cb callback, void *data) {
  SCRIPTED(); for (const auto &[key, value] : app->metadata) {
    if (!call_library(callback, key, value, data)) break; }
  return 0; }
const char *get_error_message(int) { return "the platform's text"; }
char *app_get_resource_path(void) {
  return platform().resource_path ? strdup(platform().resource_path->c_str()) : nullptr; }
// clang-format on
