#include "workload.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <iterator>
#include <utility>

#include "korvane_host.h"

namespace {

constexpr const char *kModels[] = {"vision.detect", "vision.segment", "language.translate",
                                   "speech.dictate"};

/** Whether a call ended as documented, with the service there or not. */
void expect_one_of(int result, std::initializer_list<int> documented) {
  EXPECT_TRUE(std::count(documented.begin(), documented.end(), result) == 1) << result;
}

}  // namespace

Workload::Workload(unsigned seed) : random_(seed) {
  EXPECT_EQ(korvane_svcmgr_set_update_status_cb(on_update, this), SVCMGR_ERROR_NONE);
  EXPECT_EQ(korvane_svcmgr_ai_register_status_cb(on_status, this), SVCMGR_ERROR_NONE);
}

Workload::~Workload() {
  disconnect();
  korvane_svcmgr_unset_update_status_cb();
  korvane_svcmgr_ai_deregister_status_cb();
}

void Workload::connect() {
  EXPECT_EQ(korvane_svcmgr_connect(on_connection, this), SVCMGR_ERROR_NONE);
}

void Workload::disconnect() {
  EXPECT_EQ(korvane_svcmgr_disconnect(), SVCMGR_ERROR_NONE);
  told_connected_ = false;
  note_connection();
}

void Workload::act(unsigned times) {
  while (times-- > 0) act();
}

void Workload::act() {
  int level = 0;
  char *license = nullptr;
  switch (random(6)) {
    case 0:
      request_list();
      break;
    case 1:
      request_job();
      break;
    case 2:
      expect_one_of(
          korvane_svcmgr_get_agent_api_level(&level),
          {SVCMGR_ERROR_NONE, SVCMGR_ERROR_NOT_CONNECTED, SVCMGR_ERROR_INVALID_API_LEVEL});
      break;
    case 3:
      expect_one_of(korvane_svcmgr_get_license_fulltext(&license),
                    {SVCMGR_ERROR_NONE, SVCMGR_ERROR_NOT_CONNECTED});
      std::free(license);
      break;
    case 4:
      if (updates_agents) {
        expect_one_of(korvane_svcmgr_request_update(),
                      {SVCMGR_ERROR_NONE, SVCMGR_ERROR_NOT_CONNECTED});
      }
      break;
    default:
      for (unsigned turns = random(8); turns > 0; --turns) {
        korvane_host_main_loop_step(0);
        note_connection();
      }
  }
  note_connection();
}

template <typename Send>
void Workload::request(Send send) {
  requests_.push_back({*this, true});
  const int result = send(&requests_.back());
  expect_one_of(result,
                {SVCMGR_ERROR_NONE, SVCMGR_ERROR_NOT_CONNECTED, SVCMGR_ERROR_INVALID_OPERATION});
  if (result != SVCMGR_ERROR_NONE) requests_.back().open = false;
}

void Workload::request_list() {
  request([this](Request *account) {
    switch (random(3)) {
      case 0:
        return korvane_svcmgr_ai_request_usable_model_list(on_list, account);
      case 1:
        return korvane_svcmgr_ai_request_usable_model_list_with_description(on_list, account);
      default:
        return korvane_svcmgr_ai_request_usable_model_list_with_category(on_list, "vision",
                                                                         account);
    }
  });
}

void Workload::request_job() {
  korvane_svcmgr_ai_model_list_h models = nullptr;
  korvane_svcmgr_ai_model_list_create(&models);
  for (unsigned count = 1 + random(2); count > 0; --count) {
    korvane_svcmgr_ai_model_info_h model = nullptr;
    korvane_svcmgr_ai_model_info_create(&model);
    korvane_svcmgr_ai_model_info_set_id(model, kModels[random(std::size(kModels))]);
    korvane_svcmgr_ai_model_list_add(models, model);
    korvane_svcmgr_ai_model_info_destroy(model);
  }
  const auto function =
      random(4) == 0 ? korvane_svcmgr_ai_request_to_uninstall : korvane_svcmgr_ai_request_to_update;
  request([=](Request *account) { return function(models, on_progress, account); });
  korvane_svcmgr_ai_model_list_destroy(models);
}

void Workload::note_connection() {
  bool updating = false;
  const bool connected = korvane_svcmgr_is_being_updated(&updating) == SVCMGR_ERROR_NONE;
  if (connected_ && !connected) lose_requests();
  if (!connected_ && connected) ++connections_;
  connected_ = connected;
}

void Workload::lose_requests() {
  for (Request &request : requests_) request.open = false;
}

std::size_t Workload::open() const {
  return static_cast<std::size_t>(std::count_if(
      requests_.begin(), requests_.end(), [](const Request &request) { return request.open; }));
}

void Workload::forget() {
  requests_.remove_if([](const Request &request) { return !request.open; });
}

void Workload::on_connection(int result, korvane_svcmgr_connection_state_e state, void *user_data) {
  auto &self = *static_cast<Workload *>(user_data);
  EXPECT_EQ(result, SVCMGR_ERROR_NONE);
  EXPECT_EQ(state,
            self.told_connected_ ? SVCMGR_CONNECTION_DISCONNECTED : SVCMGR_CONNECTION_CONNECTED);
  self.told_connected_ = state == SVCMGR_CONNECTION_CONNECTED;
  if (!self.told_connected_) ++self.losses_;
  self.note_connection();
}

void Workload::on_list(int result, korvane_svcmgr_ai_model_list_h list, void *user_data) {
  auto &request = *static_cast<Request *>(user_data);
  EXPECT_TRUE(std::exchange(request.open, false)) << "answered twice, or after the connection";
  EXPECT_EQ(result, SVCMGR_ERROR_NONE);
  EXPECT_EQ(korvane_svcmgr_ai_model_list_destroy(list), SVCMGR_ERROR_NONE);
  ++request.owner.answers_;
}

void Workload::on_progress(int /*result*/, korvane_svcmgr_ai_progress_h progress, void *user_data) {
  auto &request = *static_cast<Request *>(user_data);
  EXPECT_TRUE(request.open) << "reported after its end, or after the connection";
  int state = 0;
  EXPECT_EQ(korvane_svcmgr_ai_progress_get_state(progress, &state), SVCMGR_ERROR_NONE);
  EXPECT_EQ(korvane_svcmgr_ai_progress_destroy(progress), SVCMGR_ERROR_NONE);
  if (state == SVCMGR_AI_STATE_START) return;
  request.open = false;
  ++request.owner.answers_;
}

void Workload::on_update(korvane_svcmgr_update_status_e status, void *user_data) {
  EXPECT_LE(status, SVCMGR_UPDATE_STATUS_FAILED_CODE_13);
  ++static_cast<Workload *>(user_data)->statuses_;
}

void Workload::on_status(int /*result*/, korvane_svcmgr_ai_state_e /*state*/, void *user_data) {
  ++static_cast<Workload *>(user_data)->statuses_;
}
