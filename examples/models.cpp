// Connects to the service manager, lists the AI models, and updates the first one.
// KORVANE_DEVICE and KORVANE_APP_ID name the device and this application.
#include <korvane_host.h>
#include <korvane_svcmgr.h>

#include <cstdlib>
#include <iostream>
#include <memory>

namespace {

// Every handle and text that the library hands out is ours to release; an owner does so in time.
struct Release {
  void operator()(korvane_svcmgr_ai_model_info_h h) { korvane_svcmgr_ai_model_info_destroy(h); }
  void operator()(korvane_svcmgr_ai_model_list_h h) { korvane_svcmgr_ai_model_list_destroy(h); }
  void operator()(korvane_svcmgr_ai_progress_h h) { korvane_svcmgr_ai_progress_destroy(h); }
  void operator()(char *text) { std::free(text); }
};
template <typename Type>
using Owner = std::unique_ptr<Type, Release>;

// Connected as long as it lives. The callbacks come from inside the main loop and must not throw.
class Updater {
 public:
  Updater() { expect(korvane_svcmgr_connect(on_connection, this), "connect"); }
  ~Updater() { korvane_svcmgr_disconnect(); }
  Updater(Updater &&) = delete;

  int run() { return expect(korvane_host_main_loop_run(), "main loop") ? status_ : EXIT_FAILURE; }

 private:
  void succeed() {
    status_ = EXIT_SUCCESS;
    korvane_host_main_loop_quit();
  }

  bool expect(int error, const char *what) {
    if (error == SVCMGR_ERROR_NONE) return true;
    std::cerr << what << ": error " << error << '\n';
    korvane_host_main_loop_quit();
    return false;
  }

  // A rejected or lost connection ends this program; the library would reconnect by itself.
  static void on_connection(int result, korvane_svcmgr_connection_state_e state, void *data) {
    auto &self = *static_cast<Updater *>(data);
    if (result == SVCMGR_ERROR_NONE && state != SVCMGR_CONNECTION_CONNECTED)
      result = SVCMGR_ERROR_NOT_CONNECTED;
    if (self.expect(result, "connection"))
      self.expect(korvane_svcmgr_ai_request_usable_model_list(on_models, data), "models");
  }

  static void on_models(int result, korvane_svcmgr_ai_model_list_h handle, void *data) {
    const Owner<korvane_svcmgr_ai_model_list_s> list(handle);
    auto &self = *static_cast<Updater *>(data);
    int size = 0;
    if (!self.expect(result, "models") ||
        !self.expect(korvane_svcmgr_ai_model_list_get_size(handle, &size), "models"))
      return;
    if (size == 0) self.succeed();  // nothing to update
    for (int i = 0; i < size; ++i) {
      korvane_svcmgr_ai_model_info_h info = nullptr;
      if (!self.expect(korvane_svcmgr_ai_model_list_get(handle, i, &info), "models")) return;
      const Owner<korvane_svcmgr_ai_model_info_s> model(info);
      char *id = nullptr;
      if (!self.expect(korvane_svcmgr_ai_model_info_get_id(info, &id), "models")) return;
      std::cout << Owner<char>(id).get() << '\n';
      if (i == 0) self.update(info);
    }
  }

  void update(korvane_svcmgr_ai_model_info_h model) {
    korvane_svcmgr_ai_model_list_h handle = nullptr;
    if (!expect(korvane_svcmgr_ai_model_list_create(&handle), "list")) return;
    const Owner<korvane_svcmgr_ai_model_list_s> wanted(handle);
    if (expect(korvane_svcmgr_ai_model_list_add(handle, model), "list"))
      expect(korvane_svcmgr_ai_request_to_update(handle, on_progress, this), "update");
  }

  static void on_progress(int result, korvane_svcmgr_ai_progress_h handle, void *data) {
    const Owner<korvane_svcmgr_ai_progress_s> progress(handle);
    auto &self = *static_cast<Updater *>(data);
    int state = 0, percentage = 0;
    if (!self.expect(result, "update") ||
        !self.expect(korvane_svcmgr_ai_progress_get_state(handle, &state), "update") ||
        !self.expect(korvane_svcmgr_ai_progress_get_percentage(handle, &percentage), "update"))
      return;
    std::cout << percentage << " %" << std::endl;
    if (state == SVCMGR_AI_STATE_FAILED) self.expect(SVCMGR_ERROR_INVALID_OPERATION, "update");
    if (state == SVCMGR_AI_STATE_COMPLETED) self.succeed();
  }

  int status_ = EXIT_FAILURE;
};

}  // namespace

int main() {
  return Updater().run();
}
