/** An application that asks at random, and keeps account of what it is told. */
#ifndef KORVANE_TESTS_WORKLOAD_H_
#define KORVANE_TESTS_WORKLOAD_H_

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <list>
#include <random>
#include <utility>

#include "korvane_host.h"
#include "korvane_svcmgr.h"

/**
 * What callbacks promise is checked as they come: an open request is answered once, a job has one
 * end and nothing behind it, a connection that is lost answers nothing any more, and connections
 * are told of as made and lost in turn.
 */
class Workload {
 public:
  explicit Workload(unsigned seed) : random_(seed) {
    korvane_svcmgr_ai_register_status_cb(on_status, this);
  }
  ~Workload() {
    disconnect();
    korvane_svcmgr_ai_deregister_status_cb();
  }

  void connect() { EXPECT_EQ(korvane_svcmgr_connect(on_connection, this), SVCMGR_ERROR_NONE); }
  void disconnect() {
    EXPECT_EQ(korvane_svcmgr_disconnect(), SVCMGR_ERROR_NONE);
    told_connected = false;
    note_connection();
  }

  /** A number below the limit. */
  unsigned random(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

  /** Calls of the application, and turns of its main loop. */
  void act(unsigned times) {
    for (; times > 0; --times) {
      char *license = nullptr;
      switch (random(4)) {
        case 0:
          request_list();
          break;
        case 1:
          request_job();
          break;
        case 2:
          expect_documented(korvane_svcmgr_get_license_fulltext(&license));
          std::free(license);
          break;
        default:
          korvane_host_main_loop_step(0);
      }
      note_connection();
    }
  }
  void request_list() {
    request([](Request *account) {
      return korvane_svcmgr_ai_request_usable_model_list(on_list, account);
    });
  }
  void request_job() {
    korvane_svcmgr_ai_model_info_h model = nullptr;
    korvane_svcmgr_ai_model_info_create(&model);
    korvane_svcmgr_ai_model_info_set_id(model, "vision.detect");
    korvane_svcmgr_ai_model_list_h models = nullptr;
    korvane_svcmgr_ai_model_list_create(&models);
    korvane_svcmgr_ai_model_list_add(models, model);
    request([=](Request *account) {
      return korvane_svcmgr_ai_request_to_update(models, on_progress, account);
    });
    korvane_svcmgr_ai_model_list_destroy(models);
    korvane_svcmgr_ai_model_info_destroy(model);
  }

  /** Sees whether the library has lost, or made, a connection. To be called after every turn. */
  void note_connection() {
    bool updating = false;
    const bool connected = korvane_svcmgr_is_being_updated(&updating) == SVCMGR_ERROR_NONE;
    if (!connected_ && connected) ++connections;
    if (connected_ && !connected) {
      for (Request &request : requests_) request.open = false;
    }
    connected_ = connected;
  }

  /** Requests to be answered yet. */
  auto open() const { return std::count_if(requests_.begin(), requests_.end(), is_open); }
  /** Releases the requests that are answered or lost: nothing may come for them any more. */
  void forget() { requests_.remove_if(std::not_fn(is_open)); }

  bool told_connected = false;
  std::size_t connections = 0;  ///< made so far, told of or not
  std::size_t losses = 0;       ///< of connections, told of
  std::size_t answers = 0;
  std::size_t statuses = 0;  ///< of models

 private:
  struct Request {
    Workload &owner;
    bool open;
  };

  static bool is_open(const Request &request) { return request.open; }

  /** Whether a call ended as it may, with the service there or not. */
  static void expect_documented(int result) {
    EXPECT_THAT(result, testing::AnyOf(SVCMGR_ERROR_NONE, SVCMGR_ERROR_NOT_CONNECTED,
                                       SVCMGR_ERROR_INVALID_OPERATION));
  }

  /** Sends a request, of which user data is its account. */
  template <typename Send>
  void request(Send send) {
    requests_.push_back({*this, true});
    const int result = send(&requests_.back());
    expect_documented(result);
    if (result != SVCMGR_ERROR_NONE) requests_.back().open = false;
  }

  static void on_connection(int, korvane_svcmgr_connection_state_e state, void *user_data) {
    auto &self = *static_cast<Workload *>(user_data);
    const bool connected = state == SVCMGR_CONNECTION_CONNECTED;
    EXPECT_NE(std::exchange(self.told_connected, connected), connected);
    if (!connected) ++self.losses;
    self.note_connection();
  }
  static void on_list(int result, korvane_svcmgr_ai_model_list_h list, void *user_data) {
    auto &request = *static_cast<Request *>(user_data);
    EXPECT_TRUE(std::exchange(request.open, false)) << "answered twice, or after the connection";
    EXPECT_EQ(result, SVCMGR_ERROR_NONE);
    korvane_svcmgr_ai_model_list_destroy(list);
    ++request.owner.answers;
  }
  static void on_progress(int, korvane_svcmgr_ai_progress_h progress, void *user_data) {
    auto &request = *static_cast<Request *>(user_data);
    EXPECT_TRUE(request.open) << "reported after its end, or after the connection";
    int state = 0;
    korvane_svcmgr_ai_progress_get_state(progress, &state);
    korvane_svcmgr_ai_progress_destroy(progress);
    if (state == SVCMGR_AI_STATE_START) return;
    request.open = false;
    ++request.owner.answers;
  }
  static void on_status(int, korvane_svcmgr_ai_state_e, void *user_data) {
    ++static_cast<Workload *>(user_data)->statuses;
  }

  std::mt19937 random_;
  std::list<Request> requests_;
  bool connected_ = false;
};

#endif  // KORVANE_TESTS_WORKLOAD_H_
