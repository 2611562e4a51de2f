#include "canned_platform.h"

#include <cstring>
#include <initializer_list>

#include "app.h"
#include "app_event.h"
#include "bundle.h"
#include "dlog.h"
#include "package.h"
#include "rpc_port.h"

struct rpc_port_s {};
struct package_info_s {};
struct app_info_s {};
struct event_handler_s {};
struct rpc_port_proxy_s {};

/** A parcel: the numbers before and after the models, and the number of models. */
struct rpc_port_parcel_s {
  int numbers[8];
  int size;
  int read;
  int models;
  int texts_read;

  void fill(std::initializer_list<int> values, int model_count = 0) {
    size = read = texts_read = 0;
    for (const int value : values) numbers[size++] = value;
    models = model_count;
  }
};

namespace {

constexpr int kResult = 0;
constexpr int kCallback = 1;
constexpr int kAgentApiLevel = 13;
constexpr int kFailure = -5;

constexpr const char *kModelTexts[bench::kTextsOfAModel] = {
    "vision.detect.large", "1.12.0", "Object detection",
    "Finds people, animals and things in a picture."};

rpc_port_s main_port;
rpc_port_s callback_port;
rpc_port_proxy_s the_proxy;
package_info_s the_package;
event_handler_s the_handler;
std::string resource_path;

rpc_port_parcel_s request;
rpc_port_parcel_s answer;  ///< on the main port
rpc_port_parcel_s event;   ///< on the callback port

rpc_port_proxy_connected_event_cb connected;
rpc_port_proxy_received_event_cb received;
void *registered_data;

int give(char **text, const char *value) {
  *text = strdup(value);
  return 0;
}

void deliver() {
  received("", "", registered_data);
}

}  // namespace

void bench::set_resource_path(const std::string &path) {
  resource_path = path;
}

void bench::report_connected() {
  connected("", "", &main_port, registered_data);
}

bench::DelegateBlock bench::last_request() {
  return {request.numbers[1], request.numbers[2]};
}

void bench::deliver_models(DelegateBlock delegate, int count) {
  event.fill({kCallback, delegate.id, delegate.sequence, 0, count}, count);
  deliver();
}

void bench::deliver_progress(DelegateBlock delegate) {
  event.fill({kCallback, delegate.id, delegate.sequence, 0, 17, 0, 1, 50});
  deliver();
}

int dlog_print(int, const char *, const char *, ...) {
  return 0;
}

int rpc_port_proxy_create(rpc_port_proxy_h *proxy) {
  *proxy = &the_proxy;
  return 0;
}

int rpc_port_proxy_destroy(rpc_port_proxy_h) {
  return 0;
}

int rpc_port_proxy_add_connected_event_cb(rpc_port_proxy_h, rpc_port_proxy_connected_event_cb cb,
                                          void *user_data) {
  connected = cb;
  registered_data = user_data;
  return 0;
}

int rpc_port_proxy_add_disconnected_event_cb(rpc_port_proxy_h, rpc_port_proxy_disconnected_event_cb,
                                             void *) {
  return 0;
}

int rpc_port_proxy_add_rejected_event_cb(rpc_port_proxy_h, rpc_port_proxy_rejected_event_cb,
                                         void *) {
  return 0;
}

int rpc_port_proxy_add_received_event_cb(rpc_port_proxy_h, rpc_port_proxy_received_event_cb cb,
                                         void *) {
  received = cb;
  return 0;
}

int rpc_port_proxy_connect(rpc_port_proxy_h, const char *, const char *) {
  return 0;
}

int rpc_port_proxy_connect_sync(rpc_port_proxy_h, const char *, const char *) {
  return 0;
}

int rpc_port_proxy_get_port(rpc_port_proxy_h, int, rpc_port_h *port) {
  *port = &callback_port;
  return 0;
}

int rpc_port_parcel_create(rpc_port_parcel_h *parcel) {
  request.fill({});
  *parcel = &request;
  return 0;
}

int rpc_port_parcel_create_from_port(rpc_port_parcel_h *parcel, rpc_port_h port) {
  if (port == &main_port) answer.fill({kResult, kAgentApiLevel});
  *parcel = port == &main_port ? &answer : &event;
  return 0;
}

int rpc_port_parcel_send(rpc_port_parcel_h, rpc_port_h) {
  return 0;
}

int rpc_port_parcel_destroy(rpc_port_parcel_h) {
  return 0;
}

int rpc_port_parcel_write_int32(rpc_port_parcel_h parcel, int value) {
  if (parcel->size < 3) parcel->numbers[parcel->size++] = value;
  return 0;
}

int rpc_port_parcel_write_bool(rpc_port_parcel_h, bool) {
  return 0;
}

int rpc_port_parcel_write_string(rpc_port_parcel_h, const char *) {
  return 0;
}

int rpc_port_parcel_write_array_count(rpc_port_parcel_h, int) {
  return 0;
}

int rpc_port_parcel_read_int32(rpc_port_parcel_h parcel, int *value) {
  if (parcel->read == parcel->size) return kFailure;
  *value = parcel->numbers[parcel->read++];
  return 0;
}

int rpc_port_parcel_read_bool(rpc_port_parcel_h, bool *value) {
  *value = false;
  return 0;
}

int rpc_port_parcel_read_string(rpc_port_parcel_h parcel, char **text) {
  return give(text, kModelTexts[parcel->texts_read++ % bench::kTextsOfAModel]);
}

int rpc_port_parcel_read_array_count(rpc_port_parcel_h parcel, int *count) {
  *count = parcel->models;
  return 0;
}

int bundle_get_str(bundle_h, const char *, char **) {
  return kFailure;
}

const char **bundle_get_str_array(bundle_h, const char *, int *) {
  return nullptr;
}

int bundle_get_byte(bundle_h, const char *, void **, size_t *) {
  return kFailure;
}

int event_add_event_handler(const char *, event_cb, void *, event_handler_h *handler) {
  *handler = &the_handler;
  return 0;
}

int event_remove_event_handler(event_handler_h) {
  return 0;
}

const char *get_error_message(int) {
  return "";
}

int app_get_id(char **id) {
  return give(id, "com.example.viewer");
}

int app_get_version(char **version) {
  return give(version, "1.0.0");
}

char *app_get_resource_path() {
  return strdup(resource_path.c_str());
}

int package_info_create(const char *, package_info_h *package) {
  *package = &the_package;
  return 0;
}

int package_info_destroy(package_info_h) {
  return 0;
}

int package_info_get_package(package_info_h, char **id) {
  return give(id, "com.example.agent");
}

int package_info_get_version(package_info_h, char **version) {
  return give(version, "2.4.1");
}

int package_manager_foreach_package_info(package_manager_package_info_cb, void *) {
  return 0;
}

int app_info_create(const char *, app_info_h *) {
  return kFailure;
}

int app_info_destroy(app_info_h) {
  return 0;
}

int app_info_foreach_metadata(app_info_h, app_info_metadata_cb, void *) {
  return 0;
}
