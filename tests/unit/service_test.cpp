#include "UpdateObserver.h"
#include "library_test.h"

namespace {

/** A request that the service manager answers at once. */
class ServiceTest : public LibraryTest {
 protected:
  ServiceTest() {
    agents.add("agent.one");
    connect();
  }
  ~ServiceTest() override { std::free(license); }

  int ask_level(int answer) {
    platform.answer(answer);
    return korvane_svcmgr_get_agent_api_level(&level);
  }
  int ask_license(const std::string &answer) {
    platform.answer(answer);
    return korvane_svcmgr_get_license_fulltext(&license);
  }
  static int request_update(int answer) {
    platform.answer(answer);
    return korvane_svcmgr_request_update();
  }
  int request_update_with_list(int answer) {
    platform.answer(answer);
    return korvane_svcmgr_request_update_with_list(agents.get(), nullptr);
  }

  AgentList agents;
  int level = -77;
  char *license = nullptr;
};

TEST_F(ServiceTest, AnyOtherAnswerIsALevel) {
  for (const int answer : {0, 11, -38}) {
    EXPECT_EQ(SVCMGR_ERROR_NONE, ask_level(answer));
    EXPECT_EQ(answer, level);
  }
  expect_logged({"D korvane_svcmgr_get_agent_api_level: agent level : -38"});
  EXPECT_EQ(Parcel{2}, platform.sent.back());
}

TEST_F(ServiceTest, MinusOneAndADisabledSchemeAreNoLevels) {
  EXPECT_EQ(SVCMGR_ERROR_INVALID_API_LEVEL, ask_level(-1));
  EXPECT_EQ(SVCMGR_ERROR_QEL_DISABLED, ask_level(SVCMGR_ERROR_QEL_DISABLED));
  expect_logged({"I korvane_svcmgr_get_agent_api_level: invalid api level",
                 "I korvane_svcmgr_get_agent_api_level: QEL is disabled"});
  EXPECT_EQ(-77, level);
}

TEST_F(ServiceTest, ALicenceIsHandedOutWhole) {
  const std::string text = "SVCMGR_ERROR_QEL_DISABLED" + std::string(5000, 'x');
  EXPECT_EQ(SVCMGR_ERROR_NONE, ask_license(text));
  EXPECT_EQ(text, license);
  expect_logged({"D korvane_svcmgr_get_license_fulltext: agent license : " + text});
  EXPECT_EQ(Parcel{3}, platform.sent.back());
}

TEST_F(ServiceTest, AnEmptyTextAndTheMarkOfADisabledSchemeAreNoLicences) {
  EXPECT_EQ(SVCMGR_ERROR_NONE, ask_license(""));
  EXPECT_EQ(SVCMGR_ERROR_QEL_DISABLED, ask_license("SVCMGR_ERROR_QEL_DISABLED"));
  expect_logged({"I korvane_svcmgr_get_license_fulltext: can't get agent license",
                 "I korvane_svcmgr_get_license_fulltext: QEL is disabled"});
  EXPECT_EQ(nullptr, license);
}

TEST_F(ServiceTest, AnswersToUpdateRequestsAreCodes) {
  for (const int code :
       {SVCMGR_ERROR_NONE, SVCMGR_ERROR_QEL_DISABLED, SVCMGR_ERROR_PERMISSION_DENIED}) {
    EXPECT_EQ(code, request_update(code));
    EXPECT_EQ(code, request_update_with_list(code));
  }
  EXPECT_EQ(SVCMGR_ERROR_NOT_CONNECTED, request_update(SVCMGR_ERROR_UPDATE_IN_PROGRESS));
  EXPECT_EQ(SVCMGR_ERROR_UPDATE_IN_PROGRESS,
            request_update_with_list(SVCMGR_ERROR_UPDATE_IN_PROGRESS));
  EXPECT_EQ(SVCMGR_ERROR_NOT_CONNECTED, request_update_with_list(5));
  const std::string line = "I korvane_svcmgr_request_update_with_list: ";
  expect_logged({line + "QEL is disabled", line + "Permission denied",
                 line + "Service Manager is progressing updates",
                 line + "Failed to invoke_request_update. err = 5"});
}

TEST_F(ServiceTest, AListOfAnyLengthIsSentInItsOrder) {
  for (const char *name : {"", "b", "b"}) agents.add(name);
  EXPECT_EQ(SVCMGR_ERROR_NONE, request_update_with_list(0));
  EXPECT_EQ((Parcel{10, Count{4}, "agent.one", "", "b", "b", 4}), platform.sent.back());
  expect_logged({"D request_update_with_list: [agent.one]"});
  agents = AgentList();
  EXPECT_EQ(SVCMGR_ERROR_NONE, request_update_with_list(0));
  EXPECT_EQ((Parcel{10, Count{0}, 0}), platform.sent.back());
}

TEST_F(ServiceTest, TheSecondArgumentOfARequestWithAListIsNotLookedAt) {
  platform.answer(0);
  int anything = 7;
  EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_request_update_with_list(agents.get(), &anything));
}

TEST_F(ServiceTest, AnUpdateCountsAsRequestedBeforeItsAnswer) {
  const std::function<void()> requests[] = {[] { request_update(0); },
                                            [this] { request_update_with_list(0); }};
  for (const auto &request : requests) {
    UpdateObserver().FinishUpdate();
    platform.before_read = [] { EXPECT_FALSE(UpdateObserver().IsIdle()); };
    request();
    EXPECT_EQ(nullptr, platform.before_read);
  }
}

TEST_F(ServiceTest, AnAnswerWithoutANumberIsAFailure) {
  platform.on_send = [] { platform.main_port.incoming = {{0}}; };
  EXPECT_EQ(SVCMGR_ERROR_INVALID_API_LEVEL, korvane_svcmgr_get_agent_api_level(&level));
  EXPECT_EQ(SVCMGR_ERROR_NOT_CONNECTED, korvane_svcmgr_request_update());
}

TEST_F(ServiceTest, ARequestWithoutAnAnswerFails) {
  for (const char *failing :
       {"rpc_port_parcel_create", "rpc_port_parcel_send", "rpc_port_parcel_create_from_port"}) {
    platform.failures[failing] = -EIO;
    EXPECT_EQ(SVCMGR_ERROR_INVALID_API_LEVEL, ask_level(11)) << failing;
    EXPECT_EQ(SVCMGR_ERROR_NONE, ask_license("a licence")) << failing;
    EXPECT_EQ(SVCMGR_ERROR_NOT_CONNECTED, request_update(0)) << failing;
    EXPECT_EQ(SVCMGR_ERROR_NOT_CONNECTED, request_update_with_list(0)) << failing;
    platform.repair();
  }
  EXPECT_EQ(nullptr, license);
  expect_logged({"E get_agent_api_level: PROXY EXCEPTION!!!",
                 "E request_update: PROXY EXCEPTION!!!",
                 "E request_update_with_list: Unknown Exception"});
}

}  // namespace
