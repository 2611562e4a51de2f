#include <tuple>

#include "SvcMgrAppProxyHandler.h"
#include "UpdateObserver.h"
#include "library_test.h"

namespace {

constexpr int kTooOld = SVCMGR_ERROR_NOT_SUPPORTED_VERSION;
const std::string kAgent = ".agent_status";

class ConnectionTest : public LibraryTest {
 protected:
  /** Lets happen what the letters stand for; gives what the application heard, and the state. */
  std::string run(const std::string &script) {
    codes.clear();
    for (const char step : script) steps.at(step)();
    std::string all;
    for (const auto &text : std::exchange(heard, {})) all += text.substr(11) + ", ";
    all += SvcMgrAppProxyHandler::GetInstance().IsConnected() ? "up" : "down";
    all += state.IsIdle() ? " idle" : state.IsSvcmgrUpdatePrepared() ? " prepared" : "";
    all += state.IsReconnectingAfterSvcmgrUpdate() ? " relaunched" : "";
    return all + (state.IsBeingUpdated() ? " updating" : "");
  }
  UpdateObserver state;
  std::string codes;
  // clang-format off
  const std::map<char, std::function<void()>> steps = {
      {'c', [&] { codes += std::to_string(start_connecting()) + " "; }},
      {'d', [&] { codes += std::to_string(korvane_svcmgr_disconnect()) + " "; }},
      {'i', [&] { korvane_svcmgr_connect(Callback(), nullptr); }},
      {'+', [&] { platform.report_connected(); }}, {'-', [&] { platform.report_disconnected(); }},
      {'!', [&] { platform.report_rejected(); }}, {'~', [&] { platform.repair(); }},
      {'U', [&] { platform.emit(kAgent, {{"Update", "1"}, {"Launch", "1"}}); }},
      {'L', [&] { platform.emit(kAgent, {{"Launch", "1"}}); }},
      {'o', [&] { platform.emit(kAgent, {{"Update", "1"}, {"Launch", "1"}}, "event.other"); }},
      {'?', [&] { platform.emit(kAgent, {{"Update", Bytes{1}}, {"Launch", Bytes{1}}}); }},
      {'1', [&] { state.RequestUpdate(); }}, {'3', [&] { state.DisconnectForSvcmgrUpdate(); }},
      {'4', [&] { state.ReconnectAfterSvcmgrUpdate(); }}, {'5', [&] { state.StartUpdate(); }},
      {'a', [&] { platform.fail("event_add_event_handler", -9); }},
      {'r', [&] { platform.fail("event_remove_event_handler", -8); }},
      {'f', [&] { platform.fail("rpc_port_proxy_connect", -5); }}};
  // clang-format on
};

TEST_F(ConnectionTest, Stories) {
  // clang-format off
  // What is heard, and the number of connections made and of handles: a proxy, a subscription.
  const std::tuple<std::string, std::string, int, std::size_t> rows[] = {
      {"c", "down idle", 1, 1}, {"d", "down idle", 0, 0}, {"cd", "down idle", 1, 1},
      {"icc+", "0 0, up idle", 1, 2}, {"c+i-", "0 0, 0 1, down idle", 1, 2},
      {"c+d", "0 0, down idle", 1, 0}, {"c+dc", "0 0, down idle", 2, 1},
      {"c!c", "-13 2, down idle", 1, 1}, {"c+-c+", "0 0, 0 1, 0 0, up idle", 1, 2},
      {"c+U", "0 0, up prepared updating", 1, 2}, {"c+UL-", "0 0, down updating", 1, 2},
      {"c+U-L", "0 0, down relaunched updating", 2, 1},
      {"c+U-L+", "0 0, up relaunched updating", 2, 2},
      {"c+U-L+-", "0 0, 0 1, down relaunched updating", 2, 2}, {"c+?L", "0 0, up idle", 1, 2},
      {"c+o-?o", "0 0, 0 1, down idle", 1, 2}, {"c+-L+", "0 0, 0 1, 0 0, up idle", 2, 2},
      {"c+dL", "0 0, down idle", 1, 0}, {"1", "down", 0, 0}, {"134", "down", 0, 0},
      {"c+U4", "0 0, up prepared updating", 1, 2}, {"c+U33", "0 0, up updating", 1, 2},
      {"c+U343", "0 0, up relaunched updating", 1, 2}, {"5", "down updating", 0, 0},
      {"ac+", "0 0, up idle", 1, 1}, {"ac+~+", "0 0, 0 0, up idle", 1, 2},
      {"c+rdL", "0 0, down idle", 1, 0}, {"c+-fL", "0 0, 0 1, down idle", 2, 0}};
  // clang-format on
  for (const auto &[script, expected, connects, live] : rows) {
    SCOPED_TRACE(script);
    EXPECT_EQ(expected, run(script));
    EXPECT_EQ(connects, platform.count("rpc_port_proxy_connect"));
    EXPECT_EQ(live, platform.live.size());
    TearDown();
    platform.reset();
  }
  run("c+cd");
  EXPECT_EQ("0 -106 0 ", codes);
  EXPECT_LOG_HAS("|E korvane_svcmgr_connect: already connected\n|");
}

TEST_F(ConnectionTest, ImmediateFailures) {
  const std::tuple<std::string, int, int, std::string> rows[] = {
      {"rpc_port_proxy_create", -77, -1, "Invalid IO"},
      {"rpc_port_proxy_connect", -22, -1, "Invalid ID"},
      {"rpc_port_proxy_connect", -5, -1, "Invalid IO"},
      {"rpc_port_proxy_connect", -13, -13, "Permission denied"}};
  for (const auto &[function, error, code, cause] : rows) {
    platform.repair();
    platform.fail(function, error);
    EXPECT_EQ(code, start_connecting());
    EXPECT_LOG_HAS("E Connect: " + cause + " exception occurred!!!|");
    EXPECT_EQ(0U, platform.live.size());
  }
  platform.fail("rpc_port_proxy_connect", -77);
  EXPECT_EQ(0, start_connecting());
}

TEST_F(ConnectionTest, ServiceApiLevel) {
  const std::pair<int, Texts> rows[] = {
      {8, {"2.0.2", "2.0.3", "2.1.0", "2.2.9", "1.7.0", "1.7", "0.10007", "2", "0.20002"}},
      {11, {"2.3.0", "3.0.0", "3", "0.20003.1", "2.3-b", "300000.0.0", "1.2147483647"}},
      {-1, {"1.6.9", "", "x2.3.0", "-3.0", "none"}}};
  for (const auto &[level, versions] : rows) {
    for (const std::string &version : versions) {
      platform.packages[0].version = version == "none" ? std::nullopt : std::optional(version);
      const bool has_11 = korvane_svcmgr_request_update_with_list(nullptr, nullptr) != kTooOld;
      const bool has_8 = korvane_svcmgr_ai_request_to_update(nullptr, nullptr, nullptr) != kTooOld;
      EXPECT_EQ(level, has_11 ? 11 : has_8 ? 8 : -1) << version;
    }
  }
}

}  // namespace
