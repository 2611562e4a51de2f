#include <algorithm>
#include <cstdlib>
#include <tuple>

#include "SvcMgrAppProxyHandler.h"
#include "UpdateObserver.h"
#include "library_test.h"

using ::testing::ElementsAre;

namespace {

constexpr int kQel = SVCMGR_ERROR_QEL_DISABLED, kBusy = SVCMGR_ERROR_UPDATE_IN_PROGRESS;
const std::string kLevel = "get_agent_api_level", kLicence = "get_license_fulltext",
                  kUpdate = "request_update", kListed = "request_update_with_list";

class ServiceTest : public LibraryTest {
 protected:
  int call(const std::string &name) {
    others.emplace();
    platform.take_log();
    const auto row = std::find_if(kApiCalls.begin(), kApiCalls.end(), [&](const auto &any) {
      return any.name == "korvane_svcmgr_" + name;
    });
    return row->call(handles, *others);
  }
  Handles handles{true};
  std::optional<Others> others;
};

TEST_F(ServiceTest, Answers) {
  connect();
  const std::string marker = "SVCMGR_ERROR_QEL_DISABLED", text(5000, 'x');
  // clang-format off
  const std::tuple<std::string, ParcelValue, int, std::string, std::string> rows[] = {
      {kLevel, 13, 0, "agent level : 13", "13"}, {kLevel, 0, 0, "agent level : 0", "0"},
      {kLevel, -38, 0, "agent level : -38", "-38"},
      {kLevel, -1, SVCMGR_ERROR_INVALID_API_LEVEL, "invalid api level", "-77"},
      {kLevel, kQel, kQel, "QEL is disabled", "-77"},
      {kLicence, text, 0, "agent license : " + text, text}, {kLicence, "", 0, "can't get agent license", "-77"},
      {kLicence, marker, kQel, "QEL is disabled", "-77"},
      {kLicence, marker + " ", 0, "agent license : " + marker + " ", marker + " "},
      {kUpdate, 0, 0, "", "-77"}, {kUpdate, kQel, kQel, "QEL is disabled", "-77"},
      {kUpdate, -13, -13, "Permission denied", "-77"},
      {kUpdate, kBusy, -107, "Failed to invoke_request_update. err = -1073741831", "-77"},
      {kListed, 0, 0, "", "-77"}, {kListed, -13, -13, "Permission denied", "-77"},
      {kListed, kBusy, kBusy, "Service Manager is progressing updates", "-77"},
      {kListed, kQel, kQel, "QEL is disabled", "-77"},
      {kListed, 5, -107, "Failed to invoke_request_update. err = 5", "-77"}};
  // clang-format on
  const std::map<std::string, Parcel> requests = {
      {kLevel, {2}}, {kLicence, {3}}, {kUpdate, {4}}, {kListed, {10, Count{1}, "agent.one", 1}}};
  for (const auto &[name, result, code, line, out] : rows) {
    platform.sent.clear();
    UpdateObserver().FinishUpdate();
    platform.answer(result);
    EXPECT_EQ(code, call(name));
    EXPECT_EQ(out, others->text != nullptr ? others->text : std::to_string(others->number));
    EXPECT_LOG_HAS(line.empty() ? "" : name + ": " + line + "|");
    EXPECT_EQ(name == kLevel || name == kLicence, UpdateObserver().IsIdle());
    EXPECT_THAT(platform.sent, ElementsAre(requests.at(name)));
  }
  platform.sent.clear();
  for (const char *name : {"", "b", "b"}) korvane_svcmgr_agent_list_add(handles.agents, name);
  call(kListed);
  EXPECT_LOG_HAS("|D request_update_with_list: [agent.one]|D request_update_with_list: []|");
  EXPECT_THAT(platform.sent, ElementsAre(Parcel{10, Count{4}, "agent.one", "", "b", "b", 4}));
}

TEST_F(ServiceTest, Failures) {
  auto &handler = SvcMgrAppProxyHandler::GetInstance();
  const auto call_all = [&](int listed, const std::string &line) {
    EXPECT_EQ(-1, handler.get_agent_api_level());
    EXPECT_EQ("", handler.get_license());
    EXPECT_EQ(-38, handler.request_update());
    EXPECT_EQ(listed, handler.request_update_with_list(handles.agents, nullptr));
    EXPECT_LOG_HAS(line);
  };
  call_all(-107, "|E request_update: Not connected|");
  EXPECT_TRUE(UpdateObserver().IsIdle());
  start_connecting();
  EXPECT_EQ(-107, call(kLicence));
  EXPECT_LOG_HAS("|I korvane_svcmgr_get_license_fulltext: not initialized|");
  call_all(-38, "P request_update: Not connected|E request_update: PROXY EXCEPTION!!!|");
  EXPECT_FALSE(UpdateObserver().IsIdle());
  platform.report_connected();
  call_all(-38, "P request_update: Invalid protocol|E request_update: PROXY EXCEPTION!!!|");
  EXPECT_EQ(SVCMGR_ERROR_INVALID_API_LEVEL, call(kLevel));
  EXPECT_TRUE(others->untouched());
  for (const std::string function : {"rpc_port_parcel_send", "rpc_port_parcel_create"}) {
    platform.fail(function, -9);
    call_all(-38, "|E request_update_with_list: Unknown Exception|");
    platform.repair();
  }
}

}  // namespace
