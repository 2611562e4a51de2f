#include <cstdlib>
#include <tuple>

#include "SvcMgrAppProxyHandler.h"
#include "UpdateObserver.h"
#include "library_test.h"

using ::testing::ElementsAre;

namespace {

constexpr int kDisabled = SVCMGR_ERROR_QEL_DISABLED;
constexpr int kBusy = SVCMGR_ERROR_UPDATE_IN_PROGRESS;

class ServiceTest : public LibraryTest {
 protected:
  struct Function {
    std::string name;
    Parcel request;
    int call(Handles &in, Others &out) const {
      return find_call("korvane_svcmgr_" + name).call(in, out);
    }
  };
  const Function kLevel{"get_agent_api_level", {2}};
  const Function kLicense{"get_license_fulltext", {3}};
  const Function kUpdate{"request_update", {4}};
  const Function kListed{"request_update_with_list", {10, Count{1}, "agent.one", 1}};
  Handles handles;
};

TEST_F(ServiceTest, Answers) {
  connect();
  const std::string marker = "SVCMGR_ERROR_QEL_DISABLED", text(5000, 'x');
  // What the service answers, the code, the line that is logged last, and what is handed out.
  const std::tuple<const Function &, ParcelValue, int, std::string, std::string> rows[] = {
      {kLevel, 0, 0, "agent level : 0", "0"},
      {kLevel, -38, 0, "agent level : -38", "-38"},
      {kLevel, -1, SVCMGR_ERROR_INVALID_API_LEVEL, "invalid api level", ""},
      {kLevel, kDisabled, kDisabled, "QEL is disabled", ""},
      {kLicense, text, 0, "agent license : " + text, text},
      {kLicense, "", 0, "can't get agent license", ""},
      {kLicense, marker, kDisabled, "QEL is disabled", ""},
      {kLicense, marker + " ", 0, "agent license : " + marker + " ", marker + " "},
      {kUpdate, 0, 0, "", ""},
      {kUpdate, kDisabled, kDisabled, "QEL is disabled", ""},
      {kUpdate, -13, -13, "Permission denied", ""},
      {kUpdate, kBusy, -107, "Failed to invoke_request_update. err = -1073741831", ""},
      {kListed, 0, 0, "", ""},
      {kListed, -13, -13, "Permission denied", ""},
      {kListed, kBusy, kBusy, "Service Manager is progressing updates", ""},
      {kListed, kDisabled, kDisabled, "QEL is disabled", ""},
      {kListed, 5, -107, "Failed to invoke_request_update. err = 5", ""}};
  for (const auto &[function, reply, code, line, handed_out] : rows) {
    platform.forget();
    UpdateObserver().FinishUpdate();
    bool idle_when_sent = false;
    platform.on_send = [&, reply = reply] {
      idle_when_sent = UpdateObserver().IsIdle();
      platform.main_port.incoming = {{0, reply}};
    };
    Others out;
    EXPECT_EQ(code, function.call(handles, out)) << function.name;
    EXPECT_LOG_HAS(line.empty() ? "" : function.name + ": " + line + "|");
    const std::string given = Others::is_unset(out.text) ? std::to_string(out.number) : out.text;
    EXPECT_TRUE(handed_out.empty() ? out.untouched() : given == handed_out) << given;
    EXPECT_THAT(platform.sent, ElementsAre(function.request));
    const bool asks_only = &function == &kLevel || &function == &kLicense;
    EXPECT_EQ(asks_only, idle_when_sent) << "an update counts as requested before its answer";
  }
}

TEST_F(ServiceTest, ListsOfAgents) {
  connect();
  platform.answer(0);
  for (const char *name : {"", "b", "b"}) handles.agents.add(name);
  EXPECT_EQ(0, korvane_svcmgr_request_update_with_list(handles.agents.get(), nullptr));
  EXPECT_LOG_HAS("|D request_update_with_list: [agent.one]|D request_update_with_list: []|");
  EXPECT_EQ(0, korvane_svcmgr_request_update_with_list(AgentList().get(), nullptr));
  EXPECT_THAT(platform.sent, ElementsAre(Parcel{10, Count{4}, "agent.one", "", "b", "b", 4},
                                         Parcel{10, Count{0}, 0}));
}

TEST_F(ServiceTest, Failures) {
  auto &handler = SvcMgrAppProxyHandler::GetInstance();
  const auto all_fail = [&](int code_with_list, const std::string &line) {
    EXPECT_EQ(-1, handler.get_agent_api_level());
    EXPECT_EQ("", handler.get_license());
    EXPECT_EQ(-38, handler.request_update());
    EXPECT_EQ(code_with_list, handler.request_update_with_list(handles.agents.get(), nullptr));
    EXPECT_LOG_HAS(line);
  };
  all_fail(-107, "|E request_update: Not connected|");
  EXPECT_TRUE(UpdateObserver().IsIdle()) << "nothing was requested";
  start_connecting();
  Others out;
  EXPECT_EQ(-107, kLicense.call(handles, out)) << "not connected yet";
  EXPECT_LOG_HAS("|I korvane_svcmgr_get_license_fulltext: not initialized|");
  all_fail(-38, "P request_update: Not connected|E request_update: PROXY EXCEPTION!!!|");
  EXPECT_FALSE(UpdateObserver().IsIdle());
  platform.report_connected();
  all_fail(-38, "P request_update: Invalid protocol|E request_update: PROXY EXCEPTION!!!|");
  platform.on_send = [] { platform.main_port.incoming = {{0}}; };
  EXPECT_EQ(SVCMGR_ERROR_INVALID_API_LEVEL, kLevel.call(handles, out))
      << "an answer without a number";
  EXPECT_EQ(-107, kUpdate.call(handles, out));
  EXPECT_TRUE(out.untouched());
  for (const std::string function : {"rpc_port_parcel_send", "rpc_port_parcel_create"}) {
    platform.failures[function] = -9;
    all_fail(-38, "|E request_update_with_list: Unknown Exception|");
    platform.repair();
  }
}

}  // namespace
