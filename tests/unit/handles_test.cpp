#include "library_test.h"

namespace {

class HandlesTest : public LibraryTest {
 protected:
  /** Calls a function that must fail, and log just its entry and one line. */
  void fails(const ApiCall &row, Handles &h, Others &o, int code, const std::string &line) {
    platform.take_log();
    EXPECT_EQ(code, row.call(h, o));
    EXPECT_LOG(row.entry.substr(0, 2) + row.name + ": " + row.entry.substr(2) + "|E " + row.name +
               ": " + line + "|");
  }
  Handles handles{true};
  Others others;
};

TEST_F(HandlesTest, WithoutServiceManagerNothingHappens) {
  connect();
  platform.packages.clear();
  for (const auto &row : kApiCalls) {
    fails(row, handles, others, SVCMGR_ERROR_NOT_SUPPORTED, "Not supported");
  }
  EXPECT_TRUE(others.untouched());
  EXPECT_EQ(2U, platform.live.size()) << "still connected and watching";
  platform.repair();
  EXPECT_EQ("1 [m1|1.0|Title|Description]", describe(handles.models)) << "not even destroyed";
  platform.fail("package_info_create", -1);
  EXPECT_EQ("m1|1.0|Title|Description", describe(handles.info)) << "any other failure is ignored";
}

TEST_F(HandlesTest, NullArguments) {
  Handles no_handles(false);
  Others no_others(false);
  for (const ApiCall &row : kApiCalls) {
    if ((row.takes & kHandle) != 0) fails(row, no_handles, others, -22, row.null_text);
    if ((row.takes & kOther) != 0) fails(row, handles, no_others, -22, row.null_text);
  }
  EXPECT_TRUE(others.untouched());
  EXPECT_EQ(-22, korvane_svcmgr_ai_model_list_add(handles.models, nullptr));
  EXPECT_EQ("1 [m1|1.0|Title|Description]", describe(handles.models));
}

TEST_F(HandlesTest, ListsAndTexts) {
  const std::string limit(2048, 'x'), longer = limit + "y", m1 = " [m1|1.0|Title|Description]";
  handles.add_model({limit.c_str(), longer.c_str(), "", nullptr});
  handles.add_model({"m1", "1.0", "Title", "Description"});
  EXPECT_EQ("3" + m1 + " [" + limit + "|" + limit + "||-38]" + m1, describe(handles.models));
  for (const char *id : {"second", "third"}) korvane_svcmgr_ai_model_info_set_id(handles.info, id);
  EXPECT_EQ("third|1.0|Title|Description", describe(handles.info));
  for (const char *name : {"", longer.c_str()}) korvane_svcmgr_agent_list_add(handles.agents, name);
  EXPECT_EQ(0, korvane_svcmgr_agent_list_get(handles.agents, 2, &others.text));
  EXPECT_EQ(longer, others.text);
  for (const int i : {-1, 3, 1 << 30}) {
    EXPECT_EQ(-1073741830, korvane_svcmgr_agent_list_get(handles.agents, i, &others.text));
    EXPECT_EQ(-1073741830, korvane_svcmgr_ai_model_list_get(handles.models, i, &others.made.info));
    EXPECT_LOG_HAS("|E korvane_svcmgr_ai_model_list_get: Out of Index!!!|");
  }
  korvane_svcmgr_ai_model_info_create(&others.made.info);
  EXPECT_EQ("-38|-38|-38|-38", describe(others.made.info));
  EXPECT_LOG_HAS("korvane_svcmgr_ai_model_info_get_id: handle has wrong data|");
  korvane_svcmgr_ai_model_list_destroy(std::exchange(handles.models, nullptr));
  const std::string entry =
      ": korvane_svcmgr_ai_model_info_destroy|I korvane_svcmgr_ai_model_info_";
  EXPECT_LOG_HAS(entry + "destroy" + entry + "destroy" + ": ");
}

}  // namespace
