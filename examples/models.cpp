// Lists the AI models that the application can use, updates the first one to its newest version,
// and lists them again.
#include <korvane_host.h>
#include <korvane_svcmgr.hpp>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace {

using korvane::svcmgr::check;
using korvane::svcmgr::ModelInfo;
using korvane::svcmgr::ModelList;
using korvane::svcmgr::Progress;

// For the next answer. The reports of an update are answers, too; a service manager that was
// restarted gives none.
constexpr int kLongestWaitMs = 60000;

// Connected as long as it lives.
class Updater {
 public:
  Updater() { check(korvane_svcmgr_connect(on_connection, this), "connect"); }
  ~Updater() { korvane_svcmgr_disconnect(); }
  Updater(const Updater &) = delete;
  Updater &operator=(const Updater &) = delete;

  // All callbacks come from inside the main loop: on a workstation, from a step of it.
  void run() {
    while (!finished_) {
      const int delivered = korvane_host_main_loop_step(kLongestWaitMs);
      if (error_) std::rethrow_exception(error_);
      if (delivered == 0) {
        throw std::runtime_error(
            "no answer; an update that was begun goes on in the service manager");
      }
      if (delivered < 0) {
        throw std::system_error(-delivered, std::generic_category(), "main loop");
      }
    }
  }

 private:
  // A callback is called from C and must not throw: what its body throws comes out of run().
  template <typename Body>
  static void guard(void *user_data, Body body) noexcept {
    auto &self = *static_cast<Updater *>(user_data);
    try {
      body(self);
    } catch (...) {
      self.error_ = std::current_exception();
    }
  }

  // After a loss the library reconnects by itself, but what was asked before stays unanswered: this
  // program ends then.
  static void on_connection(int result, korvane_svcmgr_connection_state_e state, void *user_data) {
    guard(user_data, [=](Updater &self) {
      check(result, "connection");
      if (state != SVCMGR_CONNECTION_CONNECTED) throw std::runtime_error("the connection was lost");
      self.list();
    });
  }

  void list() {
    check(korvane_svcmgr_ai_request_usable_model_list(on_models, this), "list of models");
  }

  // The handle is ours, whatever the result.
  static void on_models(int result, korvane_svcmgr_ai_model_list_h handle, void *user_data) {
    guard(user_data, [=](Updater &self) {
      const ModelList models(handle);
      check(result, "list of models");
      if (models.empty()) std::cout << "no models\n";
      for (const ModelInfo &model : models) {
        std::cout << model.id().value_or("(no ID)") << ' ' << model.version().value_or("(none)")
                  << '\n';
      }
      self.finished_ = self.updated_ || models.empty();
      if (!self.finished_) self.update_to_newest(models.at(0).id().value());
    });
  }

  // A model without a version stands for the newest one. What came with the list does not serve:
  // its version is the installed one, and an update to that changes nothing.
  void update_to_newest(const std::string &id) {
    ModelInfo model;
    model.set_id(id);
    ModelList wanted;
    wanted.add(model);
    check(korvane_svcmgr_ai_request_to_update(wanted.get(), on_progress, this), "update");
  }

  // Called for every report of the update.
  static void on_progress(int result, korvane_svcmgr_ai_progress_h handle, void *user_data) {
    guard(user_data, [=](Updater &self) {
      const Progress progress(handle);
      check(result, "update");
      std::cout << progress.percentage() << " %" << std::endl;
      if (progress.state() == SVCMGR_AI_STATE_FAILED)
        check(SVCMGR_ERROR_INVALID_OPERATION, "update");
      self.updated_ = progress.state() == SVCMGR_AI_STATE_COMPLETED;
      if (self.updated_) self.list();
    });
  }

  bool updated_ = false;
  bool finished_ = false;
  std::exception_ptr error_;
};

}  // namespace

int main(int argc, char **argv) try {
  if (argc > 1) {
    std::cerr << "usage: KORVANE_DEVICE=DIRECTORY KORVANE_APP_ID=APPLICATION " << argv[0] << '\n';
    return EXIT_FAILURE;
  }
  Updater().run();
  return EXIT_SUCCESS;
} catch (const std::exception &error) {
  std::cerr << error.what() << '\n';
  return EXIT_FAILURE;
}
