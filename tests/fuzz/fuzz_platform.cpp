#include "fuzz_platform.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <memory>
#include <string>

#include "app.h"
#include "dlog.h"
#include "package.h"
#include "rpc_port.h"
#include "rpc_port_handles.h"

using korvane::host::Bytes;
using korvane::host::Parcel;

struct event_handler_s {
  std::string name;
  event_cb callback;
};

struct rpc_port_proxy_s {
  rpc_port_proxy_connected_event_cb connected = nullptr;
  rpc_port_proxy_disconnected_event_cb disconnected = nullptr;
  rpc_port_proxy_received_event_cb received = nullptr;
  void *user_data = nullptr;
};

namespace {

rpc_port_s main_port;
rpc_port_s callback_port;
std::deque<Bytes> main_parcels;
std::deque<Bytes> callback_parcels;
rpc_port_proxy_h current_proxy;
std::deque<event_handler_h> handlers;

}  // namespace

namespace fuzz {

void queue_main(const Bytes &parcel) {
  main_parcels.push_back(parcel);
}
void queue_callback(const Bytes &parcel) {
  callback_parcels.push_back(parcel);
}

void report_connected() {
  if (current_proxy != nullptr) {
    current_proxy->connected("", "", &main_port, current_proxy->user_data);
  }
}

void report_disconnected() {
  if (current_proxy != nullptr) current_proxy->disconnected("", "", current_proxy->user_data);
}

void report_received() {
  if (current_proxy != nullptr) current_proxy->received("", "", current_proxy->user_data);
}

void deliver_event(const char *suffix, const char *name, bundle_h payload) {
  const std::string end = suffix;
  for (const event_handler_h handler : std::deque<event_handler_h>(handlers)) {
    const std::string &full = handler->name;
    if (full.size() < end.size() || full.substr(full.size() - end.size()) != end) continue;
    handler->callback(name != nullptr ? name : full.c_str(), payload, nullptr);
    return;
  }
}

const std::string &scratch_folder() {
  struct Folder {
    Folder() : path(std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp") {
      path += "/korvane-fuzz-XXXXXX";
      require(mkdtemp(path.data()) != nullptr);
    }
    ~Folder() { std::filesystem::remove_all(path); }
    std::string path;
  };
  static const Folder folder;
  return folder.path;
}

void require(bool held) {
  if (!held) std::abort();
}

}  // namespace fuzz

int dlog_print(int, const char *, const char *format, ...) {
  char message[512];
  va_list values;
  va_start(values, format);
  std::vsnprintf(message, sizeof(message), format, values);
  va_end(values);
  return 0;
}

int rpc_port_proxy_create(rpc_port_proxy_h *proxy) {
  current_proxy = *proxy = new rpc_port_proxy_s;
  return 0;
}

int rpc_port_proxy_destroy(rpc_port_proxy_h proxy) {
  if (proxy == current_proxy) current_proxy = nullptr;
  delete proxy;
  return 0;
}

int rpc_port_proxy_add_connected_event_cb(rpc_port_proxy_h proxy,
                                          rpc_port_proxy_connected_event_cb cb, void *user_data) {
  proxy->connected = cb;
  proxy->user_data = user_data;
  return 0;
}

int rpc_port_proxy_add_disconnected_event_cb(rpc_port_proxy_h proxy,
                                             rpc_port_proxy_disconnected_event_cb cb, void *) {
  proxy->disconnected = cb;
  return 0;
}

int rpc_port_proxy_add_rejected_event_cb(rpc_port_proxy_h, rpc_port_proxy_rejected_event_cb,
                                         void *) {
  return 0;
}

int rpc_port_proxy_add_received_event_cb(rpc_port_proxy_h proxy,
                                         rpc_port_proxy_received_event_cb cb, void *) {
  proxy->received = cb;
  return 0;
}

int rpc_port_proxy_connect(rpc_port_proxy_h, const char *, const char *) {
  return 0;
}
int rpc_port_proxy_connect_sync(rpc_port_proxy_h, const char *, const char *) {
  return 0;
}

int rpc_port_proxy_get_port(rpc_port_proxy_h, int type, rpc_port_h *port) {
  *port = type == 0 ? &main_port : &callback_port;
  return 0;
}

int rpc_port_parcel_create_from_port(rpc_port_parcel_h *parcel, rpc_port_h port) {
  std::deque<Bytes> &parcels = port == &main_port ? main_parcels : callback_parcels;
  if (parcels.empty()) return -5;
  *parcel = new rpc_port_parcel_s{Parcel(std::move(parcels.front()))};
  parcels.pop_front();
  return 0;
}

int rpc_port_parcel_send(rpc_port_parcel_h, rpc_port_h) {
  return 0;
}

int event_add_event_handler(const char *event_name, event_cb callback, void *,
                            event_handler_h *handler) {
  *handler = new event_handler_s{event_name, callback};
  handlers.push_back(*handler);
  return 0;
}

int event_remove_event_handler(event_handler_h handler) {
  for (auto entry = handlers.begin(); entry != handlers.end(); ++entry) {
    if (*entry != handler) continue;
    handlers.erase(entry);
    break;
  }
  delete handler;
  return 0;
}

const char *get_error_message(int) {
  return "error";
}

int app_get_id(char **id) {
  *id = strdup("com.example.fuzz");
  return 0;
}

int app_get_version(char **version) {
  *version = strdup("1.0.0");
  return 0;
}

char *app_get_resource_path(void) {
  return strdup("/nonexistent/res/");
}

// An installed service manager, for the fuzzers that bring no packages of their own.

__attribute__((weak)) int package_info_create(const char *, package_info_h *package) {
  *package = reinterpret_cast<package_info_h>(&main_port);
  return 0;
}

__attribute__((weak)) int package_info_destroy(package_info_h) {
  return 0;
}

__attribute__((weak)) int package_info_get_package(package_info_h, char **id) {
  *id = strdup(SVCMGR_APP_ID);
  return 0;
}

__attribute__((weak)) int package_info_get_version(package_info_h, char **version) {
  *version = strdup("2.3.0");
  return 0;
}

__attribute__((weak)) int package_manager_foreach_package_info(package_manager_package_info_cb,
                                                               void *) {
  return 0;
}

__attribute__((weak)) int app_info_create(const char *, app_info_h *) {
  return -2;
}
__attribute__((weak)) int app_info_destroy(app_info_h) {
  return 0;
}
__attribute__((weak)) int app_info_foreach_metadata(app_info_h, app_info_metadata_cb, void *) {
  return 0;
}
