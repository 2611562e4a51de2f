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
  Handles handles{true};
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
  EXPECT_EQ("1" + m1, describe(handles.models)) << "not even destroyed";
  platform.failures["package_info_create"] = -1;
  EXPECT_EQ("1" + m1, describe(handles.models)) << "any other failure is ignored";
}

TEST_F(HandlesTest, NullArguments) {
  Handles no_handles(false);
  Others no_others(false);
  for (const ApiCall &function : kApiCalls) {
    if ((function.takes & kHandle) != 0) {
      fails(function, no_handles, others, -22, function.null_text);
    }
    if ((function.takes & kOther) != 0) {
      fails(function, handles, no_others, -22, function.null_text);
    }
  }
  EXPECT_TRUE(others.untouched());
  EXPECT_EQ(-22, korvane_svcmgr_ai_model_list_add(handles.models, nullptr));
  EXPECT_EQ("1" + m1, describe(handles.models));
}

TEST_F(HandlesTest, TextsAreCopied) {
  const std::string limit(2048, 'x'), longer = limit + "y";
  handles.add_model({limit.c_str(), longer.c_str(), "", nullptr});
  handles.add_model({"m1", "1.0", "Title", "Description"});
  EXPECT_EQ("3" + m1 + " [" + limit + "|" + limit + "||-38]" + m1, describe(handles.models));
  for (const char *id : {"second", "third"}) korvane_svcmgr_ai_model_info_set_id(handles.info, id);
  EXPECT_EQ("third|1.0|Title|Description", describe(handles.info));
  for (const char *name : {"", longer.c_str()}) korvane_svcmgr_agent_list_add(handles.agents, name);
  EXPECT_EQ(0, korvane_svcmgr_agent_list_get(handles.agents, 2, &others.text));
  EXPECT_EQ(longer, others.text) << "names have no limit";
}

TEST_F(HandlesTest, WhatIsNotThere) {
  for (const int index : {-1, 1, 1 << 30}) {
    EXPECT_EQ(-1073741830, korvane_svcmgr_agent_list_get(handles.agents, index, &others.text));
    EXPECT_EQ(-1073741830,
              korvane_svcmgr_ai_model_list_get(handles.models, index, &others.made.info));
    EXPECT_LOG_HAS("|E korvane_svcmgr_ai_model_list_get: Out of Index!!!|");
  }
  Handles unset(false);
  korvane_svcmgr_ai_model_info_create(&unset.info);
  EXPECT_EQ(-38, korvane_svcmgr_ai_model_info_get_id(unset.info, &others.text));
  EXPECT_LOG_HAS("korvane_svcmgr_ai_model_info_get_id: handle has wrong data|");
  EXPECT_EQ(-38, korvane_svcmgr_ai_model_info_get_title(unset.info, &others.text));
  EXPECT_LOG_HAS("korvane_svcmgr_ai_model_info_get_title: Handle has wrong data|");
  EXPECT_TRUE(others.untouched());
}

TEST_F(HandlesTest, AListReleasesItsModelsOneByOne) {
  handles.add_model({"m2", "1.0", "Title", "Description"});
  platform.take_log();
  korvane_svcmgr_ai_model_list_destroy(std::exchange(handles.models, nullptr));
  const std::string of_model =
      "I korvane_svcmgr_ai_model_info_destroy: korvane_svcmgr_ai_model_info_destroy|";
  EXPECT_LOG_HAS("korvane_svcmgr_ai_model_list_destroy|" + of_model + of_model);
}

}  // namespace
