#include "library_test.h"

namespace {

class HandlesTest : public LibraryTest {
 protected:
  /** Calls a function that must fail, and log just its entry and one line. */
  void fails(const ApiCall &function, Handles &in, Others &out, int code, const std::string &line) {
    platform.take_log();
    EXPECT_EQ(code, function.call(in, out));
    EXPECT_LOG(function.entry_line() + "E " + function.name + ": " + line + "|");
  }
  Handles handles;
  Others others;
  const std::string m1 = " [m1|1.0|Title|Description]";
};

TEST_F(HandlesTest, WithoutServiceManagerNothingHappens) {
  connect();
  platform.packages.clear();
  for (const ApiCall &function : kApiCalls) {
    fails(function, handles, others, SVCMGR_ERROR_NOT_SUPPORTED, "Not supported");
  }
  EXPECT_TRUE(others.untouched());
  EXPECT_EQ(1U, platform.proxies.size()) << "still connected";
  EXPECT_EQ(1U, platform.subscriptions.size()) << "and watching";
  platform.repair();
  EXPECT_EQ(0, handles.progress.percentage());
  EXPECT_LOG_HAS("|D korvane_svcmgr_ai_progress_get_percentage: get [0]|");
  platform.failures["package_info_create"] = -1;
  EXPECT_EQ("1" + m1, describe(handles.models)) << "any other failure is ignored";
}

TEST_F(HandlesTest, NullArguments) {
  Handles no_handles(nullptr);
  Others no_others(false);
  for (const ApiCall &function : kApiCalls) {
    if (function.takes_handle()) fails(function, no_handles, others, -22, function.null_text);
    if (function.takes_other()) fails(function, handles, no_others, -22, function.null_text);
  }
  EXPECT_TRUE(others.untouched());
  EXPECT_EQ(-22, korvane_svcmgr_ai_model_list_add(handles.models.get(), nullptr));
  EXPECT_EQ("1" + m1, describe(handles.models));
}

TEST_F(HandlesTest, TextsAreCopied) {
  const std::string limit(2048, 'x'), longer = limit + "y";
  handles.add_model({limit.c_str(), longer.c_str(), "", nullptr});
  handles.add_model({"m1", "1.0", "Title", "Description"});
  EXPECT_EQ("3" + m1 + " [" + limit + "|" + limit + "||unset]" + m1, describe(handles.models));
  for (const std::string &id : {std::string("second"), longer}) handles.info.set_id(id);
  EXPECT_EQ(limit + "|1.0|Title|Description", describe(handles.info));
  handles.agents.add(longer);
  EXPECT_EQ(longer, handles.agents.at(1)) << "names have no limit";
  platform.take_log();
  handles.models = ModelList(nullptr);
  const std::string destroy = "korvane_svcmgr_ai_model_info_destroy";
  EXPECT_LOG_HAS("list_destroy|I " + destroy + ": " + destroy + "|I " + destroy) << "one by one";
}

TEST_F(HandlesTest, WhatIsNotThere) {
  const auto agents = handles.agents.get();
  const auto models = handles.models.get();
  for (const int index : {-1, 1, 1 << 30}) {
    EXPECT_EQ(-1073741830, korvane_svcmgr_agent_list_get(agents, index, &others.text));
    EXPECT_EQ(-1073741830, korvane_svcmgr_ai_model_list_get(models, index, &others.info));
    EXPECT_LOG_HAS("|E korvane_svcmgr_ai_model_list_get: Out of Index!!!|");
  }
  const ModelInfo unset;
  EXPECT_EQ(-38, korvane_svcmgr_ai_model_info_get_id(unset.get(), &others.text));
  EXPECT_LOG_HAS("|E korvane_svcmgr_ai_model_info_get_id: handle has wrong data|");
  EXPECT_EQ(-38, korvane_svcmgr_ai_model_info_get_title(unset.get(), &others.text));
  EXPECT_LOG_HAS("|E korvane_svcmgr_ai_model_info_get_title: Handle has wrong data|");
  EXPECT_TRUE(others.untouched());
}

}  // namespace
