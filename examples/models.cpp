// Lists the AI models that the application can use, updates the first one to its newest version,
// and lists them again.
#include <korvane_host.hpp>
#include <korvane_svcmgr_client.hpp>

#include <cstdlib>
#include <iostream>
#include <string>
#include <system_error>

using namespace korvane::svcmgr;

class Updater {
 public:
  int run() {
    const std::error_code error = client_.connect();
    if (error) finish("connect", error);
    if (!error) list();  // the request waits for the connection
    korvane_host_main_loop_run();
    return status_;
  }

 private:
  void list() {
    request_ = client_.request_usable_model_list([this](std::error_code error, const auto &models) {
      if (error) return finish("list of models", error);
      for (const ModelInfo &model : models)
        std::cout << model.id().value() << ' ' << model.version().value() << '\n';
      if (is_updated_ || models.empty()) return finish("list of models", error);
      update_to_newest(models.at(0).id().value());
    });
  }

  // A model without a version requests the newest one. The model in the list cannot be used: it has
  // the installed version, and an update to that version changes nothing.
  void update_to_newest(const std::string &id) {
    ModelInfo model;
    model.set_id(id);
    ModelList wanted;
    wanted.add(model);
    const auto on_progress = [](const auto &report) {
      std::cout << report.percentage() << " %" << std::endl;
    };
    request_ = client_.request_to_update(wanted, on_progress, [this](std::error_code error) {
      if (error) return finish("update", error);
      is_updated_ = true;
      list();
    });
  }

  void finish(const char *request, std::error_code error) {
    if (error) std::cerr << request << ": " << error.message() << '\n';
    if (!error) status_ = EXIT_SUCCESS;
    korvane_host_main_loop_quit();
  }

  Client client_{korvane::host::call_after};
  Request request_;
  bool is_updated_ = false;
  int status_ = EXIT_FAILURE;
};

int main() {
  return Updater().run();
}
