// AI model requests and model status, against the service manager in another process.
#include "service_fixture.h"

namespace {

/** What one request's callback has heard. */
struct Answers {
  std::vector<int> results;  ///< of lists
  std::vector<int> states;   ///< as a job goes on
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

class ModelRequestsTest : public ServiceTest {
 protected:
  void SetUp() override { connect(); }

  static void list(Answers *answers) {
    ASSERT_EQ(korvane_svcmgr_ai_request_usable_model_list(on_list, answers), SVCMGR_ERROR_NONE);
  }
  static void await_list() {
    Answers answers;
    list(&answers);
    ASSERT_TRUE(run_until([&] { return !answers.results.empty(); }));
    EXPECT_EQ(answers.results[0], SVCMGR_ERROR_NONE);
  }
  static void update(Answers *answers) {
    korvane_svcmgr_ai_model_info_h model = nullptr;
    korvane_svcmgr_ai_model_info_create(&model);
    korvane_svcmgr_ai_model_info_set_id(model, "vision.detect");
    korvane_svcmgr_ai_model_list_h models = nullptr;
    korvane_svcmgr_ai_model_list_create(&models);
    for (int i = 0; i < 5; ++i) korvane_svcmgr_ai_model_list_add(models, model);
    EXPECT_EQ(korvane_svcmgr_ai_request_to_update(models, on_progress, answers), SVCMGR_ERROR_NONE);
    korvane_svcmgr_ai_model_list_destroy(models);
    korvane_svcmgr_ai_model_info_destroy(model);
  }
};

TEST_F(ModelRequestsTest, AnUpdateIsToldFromItsStartToItsEnd) {
  std::vector<int> statuses;
  ASSERT_EQ(korvane_svcmgr_ai_register_status_cb(on_status, &statuses), SVCMGR_ERROR_NONE);
  Answers answers;
  update(&answers);
  ASSERT_TRUE(run_until([&] { return statuses.size() >= 2; }));
  settle();
  EXPECT_EQ(statuses, (std::vector<int>{SVCMGR_AI_STATE_START, SVCMGR_AI_STATE_COMPLETED}));
  std::vector<int> expected(answers.states.size(), SVCMGR_AI_STATE_START);
  ASSERT_GE(expected.size(), 6U) << "each of five models, and the end";
  expected.back() = SVCMGR_AI_STATE_COMPLETED;
  EXPECT_EQ(answers.states, expected);
  korvane_svcmgr_ai_deregister_status_cb();
}

TEST_F(ModelRequestsTest, OddAnswersAreDroppedOrTakenAsTheyAre) {
  const std::pair<const char *, std::size_t> faults[] = {
      {"wrong-seq", 0}, {"wrong-id", 0}, {"twice", 2}, {"truncated", 1}, {"huge-count", 1}};
  for (const auto &[fault, times] : faults) {
    control({"delegate-fault", fault});
    Answers faulty;
    list(&faulty);
    await_list();  // answered after the faulty one
    EXPECT_EQ(faulty.results.size(), times) << fault;
  }
}

TEST_F(ModelRequestsTest, AServiceUpdateWhileAModelIsUpdatedGoesUnnoticed) {
  Answers answers;
  update(&answers);
  ASSERT_TRUE(run_until([&] { return !answers.states.empty(); }));
  ChildProcess service_update;
  service_update.start({EMULATOR, "ctl", "--device", device_, "update"});
  bool updating = false;
  ASSERT_TRUE(run_until([&] { return korvane_svcmgr_is_being_updated(&updating) != 0; }));
  const std::size_t states = answers.states.size();
  ASSERT_TRUE(run_until([&] { return korvane_svcmgr_is_being_updated(&updating) == 0; }));
  ASSERT_EQ(service_update.wait(), 0);
  await_list();
  EXPECT_EQ(answers.states.size(), states);
  EXPECT_TRUE(take_connection_events().empty());
}

}  // namespace
