// What an application is told by a service manager in another process.
#include "service_fixture.h"

namespace {

/** What the callbacks of a model request were told. */
struct Answers {
  std::vector<int> results;  ///< of lists
  std::vector<int> states;   ///< of a job
};

void on_list(int result, korvane_svcmgr_ai_model_list_h list, void *user_data) {
  korvane_svcmgr_ai_model_list_destroy(list);
  static_cast<Answers *>(user_data)->results.push_back(result);
}

void on_progress(int, korvane_svcmgr_ai_progress_h progress, void *user_data) {
  int state = 0;
  korvane_svcmgr_ai_progress_get_state(progress, &state);
  korvane_svcmgr_ai_progress_destroy(progress);
  static_cast<Answers *>(user_data)->states.push_back(state);
}

void on_status(int, korvane_svcmgr_ai_state_e state, void *user_data) {
  static_cast<std::vector<int> *>(user_data)->push_back(state);
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
      {{"crash-before-reply"}, true},
      {{"crash-before-reply", "get_agent_api_level"}, true},
      {{"garbage", "main", "oversized"}, true},
      {{"garbage", "main", "rubbish"}, true},
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
  std::vector<int> statuses;
  ASSERT_EQ(korvane_svcmgr_ai_register_status_cb(on_status, &statuses), SVCMGR_ERROR_NONE);
  korvane_svcmgr_ai_model_info_h model = nullptr;
  korvane_svcmgr_ai_model_info_create(&model);
  korvane_svcmgr_ai_model_info_set_id(model, "vision.detect");
  korvane_svcmgr_ai_model_list_h models = nullptr;
  korvane_svcmgr_ai_model_list_create(&models);
  for (int i = 0; i < 5; ++i) korvane_svcmgr_ai_model_list_add(models, model);
  Answers answers;
  EXPECT_EQ(korvane_svcmgr_ai_request_to_update(models, on_progress, &answers), SVCMGR_ERROR_NONE);
  korvane_svcmgr_ai_model_list_destroy(models);
  korvane_svcmgr_ai_model_info_destroy(model);

  ASSERT_TRUE(run_until([&] { return statuses.size() >= 2; }));
  settle();
  EXPECT_EQ(statuses, (std::vector<int>{SVCMGR_AI_STATE_START, SVCMGR_AI_STATE_COMPLETED}));
  std::vector<int> expected(answers.states.size(), SVCMGR_AI_STATE_START);
  ASSERT_GE(expected.size(), 6U) << "each of five models, and the end";
  expected.back() = SVCMGR_AI_STATE_COMPLETED;
  EXPECT_EQ(answers.states, expected);
  korvane_svcmgr_ai_deregister_status_cb();
}

TEST_F(ApplicationTest, HearsOfOddAnswersWhatTheyHold) {
  connect();
  const std::pair<const char *, std::size_t> faults[] = {
      {"wrong-seq", 0}, {"wrong-id", 0}, {"twice", 2}, {"truncated", 1}, {"huge-count", 1}};
  for (const auto &[fault, times] : faults) {
    control({"delegate-fault", fault});
    Answers faulty;
    Answers proper;  // comes after it
    korvane_svcmgr_ai_request_usable_model_list(on_list, &faulty);
    korvane_svcmgr_ai_request_usable_model_list(on_list, &proper);
    ASSERT_TRUE(run_until([&] { return !proper.results.empty(); }));
    EXPECT_EQ(proper.results[0], SVCMGR_ERROR_NONE);
    EXPECT_EQ(faulty.results.size(), times) << fault;
  }
}

}  // namespace
