#include <sstream>
#include <tuple>

#include "SvcMgrAppProxyHandler.h"
#include "UpdateObserver.h"
#include "library_test.h"

namespace {

constexpr int kTooOld = SVCMGR_ERROR_NOT_SUPPORTED_VERSION;
const std::string kAgent = ".agent_status";
const std::string kUpdate = ".update_status";

bool is_connected() {
  return SvcMgrAppProxyHandler::GetInstance().IsConnected();
}

class ConnectionTest : public LibraryTest {
 protected:
  static void on_event(int result, korvane_svcmgr_connection_state_e state, void *test) {
    const bool connected = state == SVCMGR_CONNECTION_CONNECTED;
    EXPECT_EQ(connected, is_connected()) << "known before it is told";
    EXPECT_TRUE(!connected || platform.calls["event_add_event_handler"] > 0) << "watched, too";
    EXPECT_EQ(state == SVCMGR_CONNECTION_REJECTED ? -13 : 0, result);
    constexpr const char *names[] = {"connected", "lost", "rejected"};
    hear(test, names[state]);
  }

  void connect() {
    korvane_svcmgr_connect(on_event, this);
    platform.report_connected();
    heard.clear();
  }

  void expect_success(int code) {
    if (code != 0) heard.push_back(std::to_string(code));
  }

  /** The state of the connection and what is known of updates. */
  static std::string state() {
    const UpdateObserver observer;
    std::string text = platform.proxies.empty() ? "none" : is_connected() ? "up" : "down";
    if (!platform.subscriptions.empty()) text += " watched";
    if (observer.IsIdle()) text += " idle";
    if (observer.IsSvcmgrUpdatePrepared()) text += " prepared";
    if (observer.IsReconnectingAfterSvcmgrUpdate()) text += " relaunched";
    if (observer.IsBeingUpdated()) text += " updating";
    return text;
  }

  /** Lets the steps of a story happen; gives what the application heard, and the state. */
  std::string tell(const std::string &story) {
    std::istringstream words(story);
    for (std::string step; words >> step;) steps.at(step)();
    std::string all;
    for (const std::string &text : std::exchange(heard, {})) all += text + ", ";
    return all + state();
  }

  const std::map<std::string, std::function<void()>> steps = {
      {"connect", [this] { expect_success(korvane_svcmgr_connect(on_event, this)); }},
      {"up", [this] { connect(); }},
      {"connect-deaf", [] { korvane_svcmgr_connect(Callback(), nullptr); }},
      {"disconnect-when-told", [this] { reaction = [] { korvane_svcmgr_disconnect(); }; }},
      {"connect-when-told",
       [this] { reaction = [] { korvane_svcmgr_connect(Callback(), nullptr); }; }},
      {"disconnect", [this] { expect_success(korvane_svcmgr_disconnect()); }},
      {"request", [this] { expect_success(korvane_svcmgr_request_update()); }},
      {"connected", [] { platform.report_connected(); }},
      {"lost", [] { platform.report_disconnected(); }},
      {"rejected", [] { platform.report_rejected(); }},
      {"update",
       [] {
         platform.emit(kAgent, {{"Update", "1"}, {"Launch", "1"}});
       }},
      {"launch",
       [] {
         platform.emit(kAgent, {{"Launch", "1"}});
       }},
      {"bytes",
       [] {
         platform.emit(kAgent, {{"Update", Bytes{1}}, {"Launch", Bytes{1}}});
       }},
      {"foreign",
       [] {
         platform.emit(kAgent, {{"Update", "1"}}, "event.other");
       }},
      {"start", [] { UpdateObserver().StartUpdate(); }},
      {"unwatchable", [] { platform.failures["event_add_event_handler"] = -9; }},
      {"watched-for-ever", [] { platform.failures["event_remove_event_handler"] = -8; }},
      {"unreachable", [] { platform.failures["rpc_port_proxy_connect"] = -5; }},
      {"repaired", [] { platform.repair(); }}};
};

TEST_F(ConnectionTest, Stories) {
  // What the application hears and the state after it, and how often a connection was started.
  const std::tuple<std::string, std::string, int> rows[] = {
      {"disconnect request", "-107, none idle", 0},
      {"connect request disconnect", "-107, down idle", 1},
      {"connect-deaf connect connect connected", "connected, up watched idle", 1},
      {"up connect-deaf lost", "lost, down watched idle", 1},
      {"up connect", "-106, up watched idle", 1},
      {"up disconnect connect connected", "connected, up watched idle", 2},
      {"up rejected connect", "rejected, down watched idle", 1},
      {"up lost connect-deaf launch connected", "lost, up watched idle", 2},
      {"connect disconnect-when-told connected", "connected, none idle", 1},
      {"up connect-when-told lost launch connected", "lost, up watched idle", 2},
      // The service manager restarts.
      {"up lost launch connected", "lost, connected, up watched idle", 2},
      {"up launch", "up watched idle", 1},
      {"up disconnect launch", "none idle", 1},
      {"up lost unreachable launch", "lost, none idle", 2},
      {"up lost bytes foreign", "lost, down watched idle", 1},
      // It is updated.
      {"up update lost", "down watched updating", 1},
      {"up update lost request launch connected", "-107, up watched relaunched updating", 2},
      {"up update lost launch connected lost", "lost, down watched relaunched updating", 2},
      {"up update lost launch rejected launch connect", "rejected, down relaunched updating", 2},
      {"up lost update", "lost, down watched prepared updating", 1},
      {"up lost update launch connected", "lost, connected, up watched prepared updating", 2},
      {"up update disconnect connect connected", "connected, up watched prepared updating", 2},
      // An update is under way, or requested.
      {"up start lost launch connected", "lost, connected, up watched updating", 2},
      {"up start request", "up watched", 1},
      {"up start update", "up watched prepared updating", 1},
      {"up update request lost", "lost, down watched", 1},
      {"up update lost launch connected request lost launch connected",
       "lost, connected, up watched", 3},
      // The platform refuses to watch, or to stop.
      {"unwatchable connect connected repaired connected", "connected, connected, up watched idle",
       1},
      {"up watched-for-ever disconnect launch", "none watched idle", 1}};
  for (const auto &[story, expected, connects] : rows) {
    SCOPED_TRACE(story);
    platform.answer(0);
    EXPECT_EQ(expected, tell(story));
    EXPECT_EQ(connects, platform.calls["rpc_port_proxy_connect"]);
    TearDown();
    platform.reset();
  }
  tell("up update");
  EXPECT_LOG_HAS(
      "|I PrepareSvcmgrUpdate: The connection to the proxy will be disconnected soonas "
      "the service-manager is updated.|");
}

TEST_F(ConnectionTest, ImmediateFailures) {
  const std::tuple<std::string, int, int, std::string> rows[] = {
      {"rpc_port_proxy_create", -77, -1, "Invalid IO"},
      {"rpc_port_proxy_connect", -22, -1, "Invalid ID"},
      {"rpc_port_proxy_connect", -5, -1, "Invalid IO"},
      {"rpc_port_proxy_connect", -13, -13, "Permission denied"}};
  for (const auto &[function, error, code, cause] : rows) {
    platform.repair();
    platform.failures[function] = error;
    EXPECT_EQ(code, start_connecting());
    const bool made = function != "rpc_port_proxy_create";
    EXPECT_LOG_HAS((made ? "P Connect: Failed to connect SvcMgrAppPort|E Connect: "
                         : "P SvcMgrAppPort: Failed to create proxy|E Connect: ") +
                   cause +
                   " exception occurred!!!|E korvane_svcmgr_connect: connection result = [" +
                   std::to_string(code) + "]|");
    EXPECT_TRUE(platform.proxies.empty());
  }
  platform.failures["rpc_port_proxy_connect"] = -77;
  EXPECT_EQ(0, start_connecting()) << "any other failure is only logged";
  EXPECT_LOG_HAS("|P Connect: Failed to connect SvcMgrAppPort|");
  EXPECT_EQ(0, start_connecting()) << "and the port stays";
}

TEST_F(ConnectionTest, ServiceApiLevelOfVersions) {
  const std::pair<int, Texts> rows[] = {
      {8, {"2.0.2", "2.2.9", "1.7", "0.10007", "2", "0.20002"}},
      {11, {"2.3.0", "3", "0.20003.1", "2.3-b", "300000.0.0", "1.2147483647"}},
      {-1, {"1.6.9", "", "x2.3.0", "-3.0"}}};
  for (const auto &[level, versions] : rows) {
    for (const std::string &version : versions) {
      EXPECT_EQ(level, convert_version_to_api_level(version.c_str())) << version;
    }
  }
}

TEST_F(ConnectionTest, VersionGates) {
  Handles no_handles(nullptr);
  Others no_others(false);
  const std::pair<std::optional<std::string>, int> rows[] = {
      {"2.3", 11}, {"1.7", 8}, {"1.6", -1}, {std::nullopt, -1}};
  for (const ApiCall &function : kApiCalls) {
    const auto has = [&](const char *part) { return function.name.find(part) + 1 > 0; };
    const int required = has("with_list") || has("with_category") ? 11 : has("ai_request") ? 8 : -1;
    for (const auto &[version, level] : rows) {
      platform.packages[0].version = version;
      platform.take_log();
      const bool too_old = function.call(no_handles, no_others) == kTooOld;
      EXPECT_EQ(required > level, too_old) << function.name << " with " << version.value_or("none");
      if (!too_old) continue;
      EXPECT_LOG(function.entry_line()) << "and no word about the arguments";
    }
  }
  platform.failures["package_info_create"] = -1;
  EXPECT_EQ(kTooOld, korvane_svcmgr_ai_request_usable_model_list(nullptr, nullptr));
}

}  // namespace
