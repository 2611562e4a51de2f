#include "library_test.h"

namespace {

class HandlesTest : public LibraryTest {
 protected:
  static ModelInfo model_with_title(const std::string &title) {
    ModelInfo model;
    model.set_title(title);
    return model;
  }
  Handles handles;
  const std::string limit = std::string(2048, 'x');
  char earlier[1] = "";
  char *text = earlier;  ///< for a text of the library
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

TEST_F(HandlesTest, AListHoldsCopiesOfModels) {
  handles.models.add(model_with_title("t"));
  handles.models.add(handles.info);
  handles.info.set_id("changed");
  handles.models.at(0).set_id("changed");
  EXPECT_EQ("[m1|1.0|Title|Description][unset|unset|t|unset][m1|1.0|Title|Description]",
            describe(handles.models));
}

TEST_F(HandlesTest, AnIndexOutsideAListIsRefused) {
  auto info = handles.info.get();
  for (const int index : {-1, 1, 1 << 30}) {
    EXPECT_EQ(SVCMGR_ERROR_OUT_OF_INDEX,
              korvane_svcmgr_agent_list_get(handles.agents.get(), index, &text));
    EXPECT_EQ(SVCMGR_ERROR_OUT_OF_INDEX,
              korvane_svcmgr_ai_model_list_get(handles.models.get(), index, &info));
  }
  EXPECT_EQ(earlier, text);
  EXPECT_EQ(handles.info.get(), info);
  expect_logged({"E korvane_svcmgr_ai_model_list_get: Out of Index!!!"});
}

TEST_F(HandlesTest, ATextThatWasNeverSetCannotBeRead) {
  for (auto get :
       {korvane_svcmgr_ai_model_info_get_id, korvane_svcmgr_ai_model_info_get_version,
        korvane_svcmgr_ai_model_info_get_title, korvane_svcmgr_ai_model_info_get_description})
    EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, get(ModelInfo().get(), &text));
  EXPECT_EQ(earlier, text);
  expect_logged({"E korvane_svcmgr_ai_model_info_get_id: handle has wrong data",
                 "E korvane_svcmgr_ai_model_info_get_title: Handle has wrong data"});
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
