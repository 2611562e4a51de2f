#include "library_test.h"

namespace {

using Getter = int (*)(korvane_svcmgr_ai_model_info_h, char **);

class HandlesTest : public LibraryTest {
 protected:
  static ModelInfo model_with_title(const std::string &title) {
    ModelInfo model;
    model.set_title(title);
    return model;
  }
  /** Expects that a text that was never set cannot be had. */
  static void expect_unset(Getter get, const std::string &line) {
    Arguments a;
    EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, get(ModelInfo().get(), &a.text_out));
    expect_logged({"E korvane_svcmgr_ai_model_info_get_" + line});
    EXPECT_TRUE(a.outputs_untouched());
  }
  Handles handles;
  const std::string limit = std::string(2048, 'x');
};

TEST_F(HandlesTest, AListKeepsTheOrderAndDuplicates) {
  handles.agents.add("");
  handles.agents.add("agent.one");
  EXPECT_THAT(Texts(handles.agents.begin(), handles.agents.end()),
              ElementsAre("agent.one", "", "agent.one"));
}

TEST_F(HandlesTest, AgentNamesHaveNoLimit) {
  handles.agents.add(limit + "y");
  EXPECT_EQ(limit + "y", handles.agents.at(1));
}

TEST_F(HandlesTest, TextsOfModelsAreCutAt2048Characters) {
  handles.info.set_id(limit);
  handles.info.set_title(limit + "y");
  EXPECT_EQ(limit + "|1.0|" + limit + "|Description", describe(handles.info));
}

TEST_F(HandlesTest, AnEmptyTextIsNoUnsetOne) {
  EXPECT_EQ("unset|unset||unset", describe(model_with_title("")));
}

TEST_F(HandlesTest, ASecondTextReplacesTheFirst) {
  handles.info.set_id("second");
  EXPECT_EQ("second|1.0|Title|Description", describe(handles.info));
}

TEST_F(HandlesTest, AListHoldsCopiesOfModels) {
  handles.models.add(model_with_title("t"));
  handles.models.add(handles.info);
  handles.info.set_id("changed");
  handles.models.at(0).set_id("changed");
  EXPECT_EQ("[m1|1.0|Title|Description][unset|unset|t|unset][m1|1.0|Title|Description]",
            describe(handles.models));
}

TEST_F(HandlesTest, DestroyingAListDestroysItsModelsOneByOne) {
  handles.models.add(handles.info);
  platform.take_log();
  handles.models = ModelList(nullptr);
  const std::string list = "korvane_svcmgr_ai_model_list_destroy";
  const std::string model = "korvane_svcmgr_ai_model_info_destroy";
  EXPECT_THAT(platform.take_log(),
              ElementsAre("I " + list + ": " + list, "I " + model + ": " + model,
                          "I " + model + ": " + model));
}

TEST_F(HandlesTest, AnIndexOutsideAListIsRefused) {
  Arguments a;
  for (const int index : {-1, 1, 1 << 30}) {
    EXPECT_EQ(SVCMGR_ERROR_OUT_OF_INDEX,
              korvane_svcmgr_agent_list_get(a.agents(), index, &a.text_out));
    EXPECT_EQ(SVCMGR_ERROR_OUT_OF_INDEX,
              korvane_svcmgr_ai_model_list_get(a.models(), index, &a.info_out));
  }
  EXPECT_TRUE(a.outputs_untouched());
  expect_logged({"E korvane_svcmgr_ai_model_list_get: Out of Index!!!"});
}

TEST_F(HandlesTest, ATextThatWasNeverSetCannotBeHad) {
  expect_unset(korvane_svcmgr_ai_model_info_get_id, "id: handle has wrong data");
  expect_unset(korvane_svcmgr_ai_model_info_get_version, "version: Handle has wrong data");
  expect_unset(korvane_svcmgr_ai_model_info_get_title, "title: Handle has wrong data");
  expect_unset(korvane_svcmgr_ai_model_info_get_description, "description: Handle has wrong data");
}

TEST_F(HandlesTest, ANewProgressRecordIsZero) {
  EXPECT_EQ("state 0, model 0 of 0, 0 %", describe(Progress()));
  expect_logged({"D korvane_svcmgr_ai_progress_get_percentage: get [0]"});
}

TEST_F(HandlesTest, AProgressRecordStoresAnyNumber) {
  Progress progress;
  progress.set_state(SVCMGR_AI_STATE_START);
  progress.set_index(-1);
  progress.set_count(2);
  progress.set_percentage(150);
  EXPECT_EQ("state 17, model -1 of 2, 150 %", describe(progress));
}

}  // namespace
