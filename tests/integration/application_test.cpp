// What an application is told by a service manager in another process.
#include "service_fixture.h"

namespace {

using Numbers = std::vector<int>;

void on_list(int result, korvane_svcmgr_ai_model_list_h list, void *results) {
  korvane_svcmgr_ai_model_list_destroy(list);
  static_cast<Numbers *>(results)->push_back(result);
}

void on_progress(int, korvane_svcmgr_ai_progress_h progress, void *states) {
  int state = 0;
  korvane_svcmgr_ai_progress_get_state(progress, &state);
  korvane_svcmgr_ai_progress_destroy(progress);
  static_cast<Numbers *>(states)->push_back(state);
}

void on_status(int, korvane_svcmgr_ai_state_e state, void *statuses) {
  static_cast<Numbers *>(statuses)->push_back(state);
}

class ApplicationTest : public ServiceTest {
 protected:
  static int call() {
    int level = 0;
    return korvane_svcmgr_get_agent_api_level(&level);
  }
  void expect_told(korvane_svcmgr_connection_state_e state) {
    ASSERT_TRUE(run_until([this] { return !connection_events_.empty(); }));
    EXPECT_EQ(take_connection_events(), (std::vector<ConnectionEvent>{{0, state}}));
  }
};

TEST_F(ApplicationTest, LosesItsConnectionOnceHoweverItEnds) {
  const struct {
    std::vector<std::string> command;
    bool is_noticed_by_a_call;
  } ends[] = {
      {{"drop"}, true},
      {{"crash-before-reply", "get_agent_api_level"}, true},
      {{"garbage", "main", "oversized"}, true},
      {{"garbage", "callback", "oversized"}, false},
      {{"garbage", "callback", "rubbish"}, false},
  };
  for (const auto &end : ends) {
    SCOPED_TRACE(testing::PrintToString(end.command));
    connect();
    control(end.command);
    EXPECT_EQ(call() != SVCMGR_ERROR_NONE, end.is_noticed_by_a_call);
    expect_told(SVCMGR_CONNECTION_DISCONNECTED);
    EXPECT_EQ(call(), SVCMGR_ERROR_NOT_CONNECTED);
    emulator_.end();
    start_emulator();
    expect_told(SVCMGR_CONNECTION_CONNECTED);
    EXPECT_EQ(call(), SVCMGR_ERROR_NONE);
    korvane_svcmgr_disconnect();
  }
}

TEST_F(ApplicationTest, HearsOfAnUpdateOfModelsFromItsStartToItsEnd) {
  connect();
  Numbers statuses;
  korvane_svcmgr_ai_register_status_cb(on_status, &statuses);
  korvane_svcmgr_ai_model_info_h model = nullptr;
  korvane_svcmgr_ai_model_info_create(&model);
  korvane_svcmgr_ai_model_info_set_id(model, "vision.detect");
  korvane_svcmgr_ai_model_list_h models = nullptr;
  korvane_svcmgr_ai_model_list_create(&models);
  for (int i = 0; i < 5; ++i) korvane_svcmgr_ai_model_list_add(models, model);
  Numbers states;
  korvane_svcmgr_ai_request_to_update(models, on_progress, &states);
  korvane_svcmgr_ai_model_list_destroy(models);
  korvane_svcmgr_ai_model_info_destroy(model);

  ASSERT_TRUE(run_until([&] { return statuses.size() >= 2; }));
  settle();
  EXPECT_EQ(statuses, (Numbers{SVCMGR_AI_STATE_START, SVCMGR_AI_STATE_COMPLETED}));
  ASSERT_GE(states.size(), 6U) << "each of five models, and the end";
  Numbers expected(states.size(), SVCMGR_AI_STATE_START);
  expected.back() = SVCMGR_AI_STATE_COMPLETED;
  EXPECT_EQ(states, expected);
  korvane_svcmgr_ai_deregister_status_cb();
}

TEST_F(ApplicationTest, HearsOfOddAnswersWhatTheyHold) {
  connect();
  const std::pair<const char *, std::size_t> faults[] = {
      {"wrong-seq", 0}, {"wrong-id", 0}, {"twice", 2}, {"truncated", 1}, {"huge-count", 1}};
  for (const auto &[fault, times] : faults) {
    control({"delegate-fault", fault});
    Numbers faulty;
    Numbers proper;  // comes after it
    korvane_svcmgr_ai_request_usable_model_list(on_list, &faulty);
    korvane_svcmgr_ai_request_usable_model_list(on_list, &proper);
    ASSERT_TRUE(run_until([&] { return !proper.empty(); }));
    EXPECT_EQ(proper[0], SVCMGR_ERROR_NONE);
    EXPECT_EQ(faulty.size(), times) << fault;
  }
}

}  // namespace
