#include "scripted_platform.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "app.h"
#include "dlog.h"

struct rpc_port_proxy_s {
  std::pair<rpc_port_proxy_connected_event_cb, void *> connected;
  std::pair<rpc_port_proxy_disconnected_event_cb, void *> disconnected;
  std::pair<rpc_port_proxy_rejected_event_cb, void *> rejected;
  std::pair<rpc_port_proxy_received_event_cb, void *> received;
};

struct package_info_s : ScriptedPlatform::Package {};
struct app_info_s : ScriptedPlatform::Package {};

namespace {

constexpr int kNoSuchPackage = static_cast<int>(0xFEEB0071);
constexpr int kFailed = -5;

/** Runs what a platform function does, unless the test lets it fail. */
template <typename Body>
int scripted(const char *function, Body body) {
  const AllocationScope library(false);
  const std::lock_guard<std::recursive_mutex> guard(platform.lock);
  platform.calls.emplace_back(function);
  const auto failure = platform.failures.find(function);
  if (failure != platform.failures.end()) return failure->second;
  if constexpr (std::is_void_v<decltype(body())>) {
    body();
    return 0;
  } else {
    return body();
  }
}

/** Calls into the library; no exception may come out. */
template <typename Callback, typename... Arguments>
auto call_library(Callback callback, Arguments... arguments) noexcept {
  const AllocationScope library(true);
  return callback(arguments...);
}

template <typename Event, typename... Port>
void report(Event event, Port... port) {
  if (platform.proxies.empty()) return;
  const auto [callback, user_data] = platform.proxies.back()->*event;
  if (callback != nullptr) call_library(callback, "endpoint", "port", port..., user_data);
}

template <typename Value>
int write(const char *function, rpc_port_parcel_h parcel, Value value) {
  return scripted(function, [&] { parcel->values.emplace_back(value); });
}

/** The next value of a parcel, which must be of the type asked for. */
template <typename Value, typename Take>
int read(const char *function, rpc_port_parcel_h parcel, Take take) {
  return scripted(function, [&] {
    if (parcel->next == parcel->values.size()) return kFailed;
    const auto *value = std::get_if<Value>(&parcel->values[parcel->next]);
    if (value == nullptr) return kFailed;
    ++parcel->next;
    take(*value);
    return 0;
  });
}

int give_text(const char *function, const std::optional<std::string> &value, char **text) {
  return scripted(function, [&] {
    if (!value) return kFailed;
    *text = strdup(value->c_str());
    return 0;
  });
}

template <typename Handle>
int look_up(const char *function, const char *id, Handle *handle) {
  return scripted(function, [&] {
    for (const auto &package : platform.packages) {
      if (package.id != id) continue;
      *handle = new std::remove_pointer_t<Handle>{package};
      return 0;
    }
    return kNoSuchPackage;
  });
}

template <typename Handle>
int destroy(const char *function, Handle handle) {
  return scripted(function, [&] { delete handle; });
}

template <typename Value>
const Value *find_in(bundle_h bundle, const char *key) {
  const AllocationScope library(false);
  const auto found = bundle->find(key);
  return found == bundle->end() ? nullptr : std::get_if<Value>(&found->second);
}

}  // namespace

void ScriptedPlatform::reset() {
  app_id = "org.example.app";
  app_version = "1.2.3";
  on_send = before_read = nullptr;
  on_log = nullptr;
  main_port = callback_port = {};
  subscriptions.clear();
  repair();
  forget();
}

void ScriptedPlatform::repair() {
  failures.clear();
  packages.clear();
  install(SVCMGR_APP_ID, "2.3.0");
}

ScriptedPlatform::Package &ScriptedPlatform::install(const std::string &id,
                                                     const std::string &version) {
  packages.push_back({id, version, {}});
  return packages.back();
}

Texts ScriptedPlatform::log_of(const std::string &text) const {
  Texts lines;
  for (const std::string &line : log)
    if (line.find(text) != std::string::npos) lines.push_back(line);
  return lines;
}

void ScriptedPlatform::forget() {
  calls.clear();
  sent.clear();
  log.clear();
}

void ScriptedPlatform::answer(const ParcelValue &result) {
  on_send = [this, result] { main_port.incoming.push_back({0, result}); };
}

void ScriptedPlatform::report_connected() {
  report(&rpc_port_proxy_s::connected, &main_port);
}

void ScriptedPlatform::report_disconnected() {
  report(&rpc_port_proxy_s::disconnected);
}

void ScriptedPlatform::report_rejected() {
  report(&rpc_port_proxy_s::rejected);
}

void ScriptedPlatform::deliver(const Parcel &parcel) {
  const AllocationScope library(false);
  callback_port.incoming = {parcel};
  report(&rpc_port_proxy_s::received);
}

void ScriptedPlatform::emit(const std::string &suffix, bundle_s data) {
  const AllocationScope library(false);
  const std::string event = "event." SVCMGR_APP_ID + suffix;
  for (const event_handler_s &handler : std::list(subscriptions)) {
    if (handler.name == event) call_library(handler.callback, event.c_str(), &data, nullptr);
  }
}

int dlog_print(int priority, const char *tag, const char *format, ...) {
  // The form of the lines of each level, without their message.
  static const std::map<std::string, std::string> levels = {
      {"3 SERVICE_MANAGER_CLIENT  %s: %s(%d) > ", "D "},
      {"4 SERVICE_MANAGER_CLIENT \033[0;32m %s: %s(%d) > \033[0;m", "I "},
      {"6 SERVICE_MANAGER_CLIENT \033[0;31m %s: %s(%d) > \033[0;m", "E "},
      {"6 RPC_PORT_PROXY %s: %s(%d) > ", "P "}};
  const AllocationScope library(false);
  std::unique_lock<std::recursive_mutex> guard(platform.lock);
  platform.calls.emplace_back(__func__);
  const std::string form = std::to_string(priority) + " " + tag + " " + format;
  const std::size_t begin = form.find("> ") + 2;
  const std::size_t end = std::min(form.find("\033[0;m"), form.size());

  va_list values;
  va_start(values, format);
  const std::string file = va_arg(values, const char *);
  const std::string function = va_arg(values, const char *);
  static_cast<void>(va_arg(values, int));
  char message[8192];
  std::vsnprintf(message, sizeof(message), form.substr(begin, end - begin).c_str(), values);
  va_end(values);

  if (file.find('/') != std::string::npos) std::abort();
  const auto line = levels.at(form.substr(0, begin) + form.substr(end)) + function + ": " + message;
  platform.log.push_back(line);
  const auto on_log = platform.on_log;
  guard.unlock();
  if (on_log) on_log(line);
  return 0;
}

int rpc_port_proxy_create(rpc_port_proxy_h *proxy) {
  return scripted(__func__, [&] {
    *proxy = new rpc_port_proxy_s{};
    platform.proxies.push_back(*proxy);
  });
}

int rpc_port_proxy_destroy(rpc_port_proxy_h proxy) {
  platform.proxies.remove(proxy);
  return destroy(__func__, proxy);
}

#define SCRIPTED_EVENT(event)                                                                \
  int rpc_port_proxy_add_##event##_event_cb(                                                 \
      rpc_port_proxy_h proxy, rpc_port_proxy_##event##_event_cb callback, void *user_data) { \
    return scripted(__func__, [&] { proxy->event = {callback, user_data}; });                \
  }
SCRIPTED_EVENT(connected)
SCRIPTED_EVENT(disconnected)
SCRIPTED_EVENT(rejected)
SCRIPTED_EVENT(received)

int rpc_port_proxy_connect(rpc_port_proxy_h, const char *app_id, const char *port_name) {
  return scripted(__func__, [&] {
    const std::string target = std::string(app_id) + " " + port_name;
    return target == SVCMGR_APP_ID " SvcMgrAppPort" ? 0 : kFailed;
  });
}

int rpc_port_proxy_connect_sync(rpc_port_proxy_h proxy, const char *app_id, const char *port_name) {
  const int error = rpc_port_proxy_connect(proxy, app_id, port_name);
  if (error == 0) platform.report_connected();
  return error;
}

int rpc_port_proxy_get_port(rpc_port_proxy_h, int type, rpc_port_h *port) {
  return scripted(__func__,
                  [&] { *port = type == 0 ? &platform.main_port : &platform.callback_port; });
}

int rpc_port_parcel_create(rpc_port_parcel_h *parcel) {
  return scripted(__func__, [&] { *parcel = new rpc_port_parcel_s; });
}

int rpc_port_parcel_create_from_port(rpc_port_parcel_h *parcel, rpc_port_h port) {
  const auto before_read = std::exchange(platform.before_read, nullptr);
  if (before_read) before_read();
  return scripted(__func__, [&] {
    if (port->incoming.empty()) return kFailed;
    *parcel = new rpc_port_parcel_s{port->incoming.front()};
    port->incoming.pop_front();
    return 0;
  });
}

int rpc_port_parcel_send(rpc_port_parcel_h parcel, rpc_port_h port) {
  return scripted(__func__, [&] {
    if (port != &platform.main_port) return kFailed;
    platform.sent.push_back(parcel->values);
    if (platform.on_send) platform.on_send();
    return 0;
  });
}

int rpc_port_parcel_destroy(rpc_port_parcel_h parcel) {
  return destroy(__func__, parcel);
}

int rpc_port_parcel_write_int32(rpc_port_parcel_h parcel, int value) {
  return write(__func__, parcel, value);
}

int rpc_port_parcel_read_int32(rpc_port_parcel_h parcel, int *value) {
  return read<int>(__func__, parcel, [=](int found) { *value = found; });
}

int rpc_port_parcel_write_bool(rpc_port_parcel_h parcel, bool value) {
  return write(__func__, parcel, value);
}

int rpc_port_parcel_read_bool(rpc_port_parcel_h parcel, bool *value) {
  return read<bool>(__func__, parcel, [=](bool found) { *value = found; });
}

int rpc_port_parcel_write_array_count(rpc_port_parcel_h parcel, int count) {
  return write(__func__, parcel, Count{count});
}

int rpc_port_parcel_read_array_count(rpc_port_parcel_h parcel, int *count) {
  return read<Count>(__func__, parcel, [=](Count found) { *count = found.value; });
}

int rpc_port_parcel_write_string(rpc_port_parcel_h parcel, const char *text) {
  return write(__func__, parcel, text);
}

int rpc_port_parcel_read_string(rpc_port_parcel_h parcel, char **text) {
  return read<std::string>(__func__, parcel,
                           [=](const std::string &found) { *text = strdup(found.c_str()); });
}

int bundle_get_str(bundle_h bundle, const char *key, char ** /*text*/) {
  return find_in<std::string>(bundle, key) != nullptr ? 0 : kFailed;
}

const char **bundle_get_str_array(bundle_h bundle, const char *key, int *count) {
  static const char *unread = nullptr;
  *count = 1;
  return find_in<Texts>(bundle, key) != nullptr ? &unread : nullptr;
}

int bundle_get_byte(bundle_h bundle, const char *key, void **bytes, std::size_t *size) {
  const auto *value = find_in<Bytes>(bundle, key);
  if (value == nullptr) return kFailed;
  *bytes = const_cast<unsigned char *>(value->data());
  *size = value->size();
  return 0;
}

int event_add_event_handler(const char *name, event_cb callback, void *, event_handler_h *handler) {
  return scripted(__func__, [&] {
    *handler = &platform.subscriptions.emplace_back(event_handler_s{name, callback});
  });
}

int event_remove_event_handler(event_handler_h handler) {
  return scripted(__func__, [&] {
    platform.subscriptions.remove_if([=](const auto &known) { return &known == handler; });
  });
}

const char *get_error_message(int) {
  return "the platform's text";
}

int app_get_id(char **id) {
  return give_text(__func__, platform.app_id, id);
}

int app_get_version(char **version) {
  return give_text(__func__, platform.app_version, version);
}

char *app_get_resource_path(void) {
  char *path = nullptr;
  give_text(__func__, platform.resource_path, &path);
  return path;
}

int package_info_create(const char *id, package_info_h *package) {
  return look_up(__func__, id, package);
}

int package_info_destroy(package_info_h package) {
  return destroy(__func__, package);
}

int package_info_get_package(package_info_h package, char **id) {
  return give_text(__func__, package->id, id);
}

int package_info_get_version(package_info_h package, char **version) {
  return give_text(__func__, package->version, version);
}

int package_manager_foreach_package_info(package_manager_package_info_cb callback,
                                         void *user_data) {
  return scripted(__func__, [&] {
    for (const auto &package : platform.packages) {
      package_info_s info{package};
      if (!call_library(callback, &info, user_data)) break;
    }
  });
}

int app_info_create(const char *id, app_info_h *app) {
  return look_up(__func__, id, app);
}

int app_info_destroy(app_info_h app) {
  return destroy(__func__, app);
}

int app_info_foreach_metadata(app_info_h app, app_info_metadata_cb callback, void *user_data) {
  return scripted(__func__, [&] {
    for (const auto &[key, value] : app->metadata) {
      if (!call_library(callback, key, value, user_data)) break;
    }
  });
}
