#include "SvcMgrAppProxyHandler.h"
#include "UpdateObserver.h"
#include "library_test.h"

namespace {

constexpr const char *kDisabledMark = "SVCMGR_ERROR_QEL_DISABLED";

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
  /** Expects that the handler's calls fail, each with its own value. */
  void expect_all_fail(int code_with_list, const std::string &line,
                       const std::string &line_with_list) {
    auto &handler = SvcMgrAppProxyHandler::GetInstance();
    platform.take_log();
    EXPECT_EQ(-1, handler.get_agent_api_level());
    EXPECT_EQ("", handler.get_license());
    EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, handler.request_update());
    EXPECT_EQ(code_with_list, handler.request_update_with_list(agents.get(), nullptr));
    expect_logged({"E get_agent_api_level: " + line, "E get_license: " + line,
                   "E request_update: " + line, "E request_update_with_list: " + line_with_list});
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

TEST_F(ServiceTest, ALevelOfMinusOneIsInvalid) {
  EXPECT_EQ(SVCMGR_ERROR_INVALID_API_LEVEL, ask_level(-1));
  expect_logged({"I korvane_svcmgr_get_agent_api_level: invalid api level"});
  EXPECT_EQ(-77, level);
}

TEST_F(ServiceTest, AnAnswerWithoutANumberIsNoLevel) {
  platform.on_send = [] { platform.main_port.incoming = {{0}}; };
  EXPECT_EQ(SVCMGR_ERROR_INVALID_API_LEVEL, korvane_svcmgr_get_agent_api_level(&level));
  EXPECT_EQ(SVCMGR_ERROR_NOT_CONNECTED, korvane_svcmgr_request_update());
}

TEST_F(ServiceTest, ADisabledSchemeIsNoLevel) {
  EXPECT_EQ(SVCMGR_ERROR_QEL_DISABLED, ask_level(SVCMGR_ERROR_QEL_DISABLED));
  expect_logged({"I korvane_svcmgr_get_agent_api_level: QEL is disabled"});
  EXPECT_EQ(-77, level);
}

TEST_F(ServiceTest, ALicenceIsHandedOutWhole) {
  const std::string text(5000, 'x');
  EXPECT_EQ(SVCMGR_ERROR_NONE, ask_license(text));
  EXPECT_EQ(text, license);
  expect_logged({"D korvane_svcmgr_get_license_fulltext: agent license : " + text});
  EXPECT_EQ(Parcel{3}, platform.sent.back());
}

TEST_F(ServiceTest, AnEmptyLicenceIsNotWritten) {
  EXPECT_EQ(SVCMGR_ERROR_NONE, ask_license(""));
  expect_logged({"I korvane_svcmgr_get_license_fulltext: can't get agent license"});
  EXPECT_EQ(nullptr, license);
}

TEST_F(ServiceTest, TheMarkOfADisabledSchemeIsNoLicence) {
  EXPECT_EQ(SVCMGR_ERROR_QEL_DISABLED, ask_license(kDisabledMark));
  expect_logged({"I korvane_svcmgr_get_license_fulltext: QEL is disabled"});
  EXPECT_EQ(nullptr, license);
}

TEST_F(ServiceTest, ALicenceMayBeginWithThatMark) {
  EXPECT_EQ(SVCMGR_ERROR_NONE, ask_license(std::string(kDisabledMark) + " "));
  EXPECT_EQ(std::string(kDisabledMark) + " ", license);
}

TEST_F(ServiceTest, AnswersToAnUpdateRequestAreCodes) {
  EXPECT_EQ(SVCMGR_ERROR_NONE, request_update(0));
  EXPECT_EQ(Parcel{4}, platform.sent.back());
  EXPECT_EQ(SVCMGR_ERROR_QEL_DISABLED, request_update(SVCMGR_ERROR_QEL_DISABLED));
  EXPECT_EQ(SVCMGR_ERROR_PERMISSION_DENIED, request_update(SVCMGR_ERROR_PERMISSION_DENIED));
  EXPECT_EQ(SVCMGR_ERROR_NOT_CONNECTED, request_update(SVCMGR_ERROR_UPDATE_IN_PROGRESS));
  EXPECT_EQ(SVCMGR_ERROR_NOT_CONNECTED, request_update(5));
  const std::string begin = "I korvane_svcmgr_request_update: ";
  expect_logged({begin + "QEL is disabled", begin + "Permission denied",
                 begin + "Failed to invoke_request_update. err = -1073741831"});
}

TEST_F(ServiceTest, AnswersToAnUpdateRequestWithAListAreCodes) {
  EXPECT_EQ(SVCMGR_ERROR_NONE, request_update_with_list(0));
  EXPECT_EQ(SVCMGR_ERROR_QEL_DISABLED, request_update_with_list(SVCMGR_ERROR_QEL_DISABLED));
  EXPECT_EQ(SVCMGR_ERROR_PERMISSION_DENIED,
            request_update_with_list(SVCMGR_ERROR_PERMISSION_DENIED));
  EXPECT_EQ(SVCMGR_ERROR_UPDATE_IN_PROGRESS,
            request_update_with_list(SVCMGR_ERROR_UPDATE_IN_PROGRESS));
  EXPECT_EQ(SVCMGR_ERROR_NOT_CONNECTED, request_update_with_list(5));
  const std::string begin = "I korvane_svcmgr_request_update_with_list: ";
  expect_logged({begin + "QEL is disabled", begin + "Permission denied",
                 begin + "Service Manager is progressing updates",
                 begin + "Failed to invoke_request_update. err = 5"});
}

TEST_F(ServiceTest, AListIsSentInItsOrder) {
  for (const char *name : {"", "b", "b"}) agents.add(name);
  EXPECT_EQ(SVCMGR_ERROR_NONE, request_update_with_list(0));
  EXPECT_EQ((Parcel{10, Count{4}, "agent.one", "", "b", "b", 4}), platform.sent.back());
  expect_logged({"D request_update_with_list: RequestInstall",
                 "D request_update_with_list: [agent.one]", "D request_update_with_list: []"});
}

TEST_F(ServiceTest, AnEmptyListIsSent) {
  agents = AgentList();
  EXPECT_EQ(SVCMGR_ERROR_NONE, request_update_with_list(0));
  EXPECT_EQ((Parcel{10, Count{0}, 0}), platform.sent.back());
}

TEST_F(ServiceTest, TheSecondArgumentOfARequestWithAListIsNotLookedAt) {
  platform.answer(0);
  int anything = 7;
  EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_request_update_with_list(agents.get(), &anything));
  EXPECT_EQ((Parcel{10, Count{1}, "agent.one", 1}), platform.sent.back());
}

TEST_F(ServiceTest, AnUpdateCountsAsRequestedBeforeItsAnswer) {
  const std::function<void()> requests[] = {[] { korvane_svcmgr_request_update(); },
                                            [this] { request_update_with_list(0); }};
  for (const auto &request : requests) {
    UpdateObserver().FinishUpdate();
    platform.before_read = [] { EXPECT_FALSE(UpdateObserver().IsIdle()); };
    request();
    EXPECT_EQ(nullptr, platform.before_read);
  }
}

TEST_F(ServiceTest, QuestionsAreNoRequests) {
  ask_level(11);
  ask_license("a licence");
  EXPECT_TRUE(UpdateObserver().IsIdle());
}

TEST_F(ServiceTest, WithoutAPortNothingIsRequested) {
  korvane_svcmgr_disconnect();
  expect_all_fail(SVCMGR_ERROR_NOT_CONNECTED, "Not connected", "Not connected");
  EXPECT_TRUE(UpdateObserver().IsIdle());
}

TEST_F(ServiceTest, APortWithoutAConnectionFails) {
  korvane_svcmgr_disconnect();
  start_connecting();
  expect_all_fail(SVCMGR_ERROR_INVALID_OPERATION, "PROXY EXCEPTION!!!", "Unknown Exception");
  EXPECT_FALSE(UpdateObserver().IsIdle());
}

TEST_F(ServiceTest, AMissingAnswerIsAFailure) {
  expect_all_fail(SVCMGR_ERROR_INVALID_OPERATION, "PROXY EXCEPTION!!!", "Unknown Exception");
}

TEST_F(ServiceTest, ARequestThatCannotBeMadeOrSentIsAFailure) {
  for (const char *function : {"rpc_port_parcel_create", "rpc_port_parcel_send"}) {
    platform.failures[function] = -EIO;
    expect_all_fail(SVCMGR_ERROR_INVALID_OPERATION, "PROXY EXCEPTION!!!", "Unknown Exception");
    platform.repair();
  }
}

}  // namespace
