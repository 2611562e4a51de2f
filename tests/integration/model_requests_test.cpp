// AI model requests and model status, against the service manager in another process.
#include <cstdlib>
#include <memory>

#include "service_fixture.h"

namespace {

struct Model {
  std::string id, version;
};

/** What one request's callback has heard. */
struct Answers {
  std::vector<int> results;
  std::vector<std::vector<Model>> lists;
  std::vector<int> states;  ///< as a job goes on

  bool ended() const { return !states.empty() && states.back() != SVCMGR_AI_STATE_START; }
};

std::string text_of(korvane_svcmgr_ai_model_info_h info,
                    int (*get)(korvane_svcmgr_ai_model_info_h, char **)) {
  char *text = nullptr;
  EXPECT_EQ(get(info, &text), SVCMGR_ERROR_NONE);
  const std::unique_ptr<char, decltype(&std::free)> owner(text, std::free);
  return text != nullptr ? text : "";
}

void on_list(int result, korvane_svcmgr_ai_model_list_h list, void *user_data) {
  auto &answers = *static_cast<Answers *>(user_data);
  answers.results.push_back(result);
  int size = 0;
  EXPECT_EQ(korvane_svcmgr_ai_model_list_get_size(list, &size), SVCMGR_ERROR_NONE);
  std::vector<Model> models;
  for (int i = 0; i < size; ++i) {
    korvane_svcmgr_ai_model_info_h info = nullptr;
    EXPECT_EQ(korvane_svcmgr_ai_model_list_get(list, i, &info), SVCMGR_ERROR_NONE);
    models.push_back({text_of(info, korvane_svcmgr_ai_model_info_get_id),
                      text_of(info, korvane_svcmgr_ai_model_info_get_version)});
    korvane_svcmgr_ai_model_info_destroy(info);
  }
  korvane_svcmgr_ai_model_list_destroy(list);
  answers.lists.push_back(models);
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

  static std::vector<Model> list() {
    Answers answers;
    EXPECT_EQ(korvane_svcmgr_ai_request_usable_model_list(on_list, &answers), SVCMGR_ERROR_NONE);
    EXPECT_TRUE(run_until([&] { return !answers.lists.empty(); }));
    EXPECT_EQ(answers.results, std::vector<int>{SVCMGR_ERROR_NONE});
    return answers.lists.empty() ? std::vector<Model>() : answers.lists[0];
  }

  static int request(decltype(korvane_svcmgr_ai_request_to_update) function,
                     const std::vector<Model> &models, Answers *answers) {
    korvane_svcmgr_ai_model_list_h handle = nullptr;
    korvane_svcmgr_ai_model_list_create(&handle);
    for (const Model &model : models) {
      korvane_svcmgr_ai_model_info_h info = nullptr;
      korvane_svcmgr_ai_model_info_create(&info);
      korvane_svcmgr_ai_model_info_set_id(info, model.id.c_str());
      korvane_svcmgr_ai_model_info_set_version(info, model.version.c_str());
      korvane_svcmgr_ai_model_list_add(handle, info);
      korvane_svcmgr_ai_model_info_destroy(info);
    }
    const int error = function(handle, on_progress, answers);
    korvane_svcmgr_ai_model_list_destroy(handle);
    return error;
  }
};

TEST_F(ModelRequestsTest, AnUpdateShowsInTheNextListAndSurvivesARestart) {
  const Model wanted = {"vision.detect", "2.0.0"};
  ASSERT_EQ(list().at(0).id, wanted.id);
  ASSERT_NE(list().at(0).version, wanted.version);
  std::vector<int> statuses;
  ASSERT_EQ(korvane_svcmgr_ai_register_status_cb(on_status, &statuses), SVCMGR_ERROR_NONE);

  Answers answers;
  ASSERT_EQ(request(korvane_svcmgr_ai_request_to_update, {wanted}, &answers), SVCMGR_ERROR_NONE);
  ASSERT_TRUE(run_until([&] { return answers.ended() && statuses.size() >= 2; }));
  EXPECT_EQ(answers.states.front(), SVCMGR_AI_STATE_START);
  EXPECT_EQ(answers.states.back(), SVCMGR_AI_STATE_COMPLETED);
  EXPECT_GE(answers.states.size(), 3U);
  EXPECT_EQ(statuses, (std::vector<int>{SVCMGR_AI_STATE_START, SVCMGR_AI_STATE_COMPLETED}));
  EXPECT_EQ(list().at(0).version, wanted.version);

  control({"restart"});
  ASSERT_TRUE(run_until([this] { return connection_events_.size() >= 2; }));
  EXPECT_EQ(list().at(0).version, wanted.version);

  Answers removal;
  ASSERT_EQ(request(korvane_svcmgr_ai_request_to_uninstall, {wanted}, &removal), SVCMGR_ERROR_NONE);
  ASSERT_TRUE(run_until([&] { return removal.ended(); }));
  for (const Model &left : list()) EXPECT_NE(left.id, wanted.id);
  korvane_svcmgr_ai_deregister_status_cb();
}

TEST_F(ModelRequestsTest, OddAnswersAreDroppedOrTakenAsTheyAre) {
  for (const char *fault : {"wrong-seq", "wrong-id", "twice", "truncated", "huge-count"}) {
    control({"delegate-fault", fault});
    Answers faulty;
    ASSERT_EQ(korvane_svcmgr_ai_request_usable_model_list(on_list, &faulty), SVCMGR_ERROR_NONE);
    list();  // answered after the faulty one
    const bool dropped = std::string(fault).find("wrong") == 0;
    const std::size_t expected = dropped ? 0 : std::string(fault) == "twice" ? 2 : 1;
    EXPECT_EQ(faulty.results.size(), expected) << fault;
  }
}

TEST_F(ModelRequestsTest, AServiceUpdateWhileAModelIsUpdatedGoesUnnoticed) {
  const std::vector<Model> models = list();
  Answers answers;
  ASSERT_EQ(request(korvane_svcmgr_ai_request_to_update, models, &answers), SVCMGR_ERROR_NONE);
  ASSERT_TRUE(run_until([&] { return !answers.states.empty(); }));
  ChildProcess update;
  update.start({EMULATOR, "ctl", "--device", device_, "update"});
  bool updating = false;
  ASSERT_TRUE(run_until([&] { return korvane_svcmgr_is_being_updated(&updating) != 0; }));
  const std::size_t states = answers.states.size();
  ASSERT_TRUE(run_until([&] { return korvane_svcmgr_is_being_updated(&updating) == 0; }));
  ASSERT_EQ(update.wait(), 0);
  EXPECT_FALSE(list().empty());
  EXPECT_EQ(answers.states.size(), states);
  EXPECT_TRUE(take_connection_events().empty());
}

}  // namespace
