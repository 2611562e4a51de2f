#include <climits>
#include <tuple>

#include "library_test.h"

namespace {

const std::string kAgent = SVCMGR_VENDOR_PREFIX ".agent";
constexpr const char *kKey = "ai-agent-category";

class ModelRequestsTest : public LibraryTest {
 protected:
  struct Request {
    std::string wrapper;
    int kind;
    Parcel sent;  ///< after the block that names the delegate
    std::string name;
    std::function<int()> send;
  };
  ModelRequestsTest() {
    handles.add_model({"m2", nullptr, "Only a title", nullptr});
    platform.packages.push_back({kAgent, "4.5", {{kKey, "vision"}}});
  }
  /** Sends a request and delivers one answer to it; gives what the application hears. */
  std::string answered(const Request &request, const Parcel &payload) {
    EXPECT_EQ(0, request.send());
    platform.take_log();
    answer(request.kind, payload);
    return std::exchange(heard, {}).back();
  }
  /** Sends a request that must fail, and log both why and its code. */
  void fails(const Request &request, const std::string &line, const std::string &code) {
    const bool of_list = request.name.find("usable") == 0;
    EXPECT_EQ(code, std::to_string(request.send()));
    EXPECT_LOG_HAS("E " + request.wrapper + ": " + line + "|E korvane_svcmgr_ai_request_" +
                   request.name + (of_list ? ": connection error [" : ": error [") + code + "]|");
  }

  Handles handles;
#define REQUEST(name, ...) \
#name, [this] { return korvane_svcmgr_ai_request_##name(__VA_ARGS__, this); }
  const Request usable = {
      "GetUsableModelList", 1, {"org.example.app", "1.2.3"}, REQUEST(usable_model_list, on_models)};
  const Request described = {"GetUsableModelListWithDesc",
                             2,
                             {"org.example.app", "1.2.3"},
                             REQUEST(usable_model_list_with_description, on_models)};
  const Request of_category = {"GetUsableModelListWithCategory",
                               1,
                               {kAgent, "4.5"},
                               REQUEST(usable_model_list_with_category, on_models, "vision")};
  const Request versions = {"GetModelVersionList",
                            3,
                            {"m1", "", "", "", "org.example.app", "1.2.3"},
                            REQUEST(model_version_list, handles.info.get(), on_models)};
  const Request update = {"RequestToUpdate",
                          4,
                          {Count{2}, "m1", "1.0", "", "", "m2", "", "", "", 2},
                          REQUEST(to_update, handles.models.get(), on_progress)};
  const Request uninstall = {"RequestToUninstall",
                             5,
                             {Count{2}, "m1", "", "", "", "m2", "", "", "", 2},
                             REQUEST(to_uninstall, handles.models.get(), on_progress)};
  const std::vector<Request> requests = {usable,   described, of_category,
                                         versions, update,    uninstall};
};

TEST_F(ModelRequestsTest, Layouts) {
  connect();
  for (const Request &request : requests) {
    EXPECT_EQ(0, request.send());
    EXPECT_LOG_HAS("|D " + request.wrapper + ": " + request.wrapper + "|");
    Parcel expected = {request.kind + 4, request.kind, platform.sent.back()[2], false};
    expected.insert(expected.end(), request.sent.begin(), request.sent.end());
    EXPECT_EQ(expected, platform.sent.back());
  }
  handles.info.set_id(std::string(2049, 'x'));
  versions.send();
  EXPECT_EQ(ParcelValue(std::string(2048, 'x')), platform.sent.back()[4]) << "cut when it was set";
  update.send();
  EXPECT_LOG_HAS("|D RequestToUpdate: [m1, 1.0]|D RequestToUpdate: [m2, ]|");
  EXPECT_EQ(0, korvane_svcmgr_ai_request_to_uninstall(ModelList().get(), on_progress, this));
  EXPECT_EQ((Parcel{Count{0}, 0}),
            Parcel(platform.sent.back().begin() + 4, platform.sent.back().end()));
}

TEST_F(ModelRequestsTest, Failures) {
  for (const Request &request : requests) fails(request, "Not connected", "-107");
  start_connecting();
  for (const Request &request : requests) fails(request, "Unknown Exception", "-38");
  platform.report_connected();
  platform.failures["app_info_create"] = -9;
  fails(of_category, "No such package for the category.", "-22");
  platform.app_version = "";
  for (const Request &request : {usable, described, versions})
    fails(request, "Failed to get app info.", "-38");
  handles.add_model({nullptr, "1.0", nullptr, nullptr});
  for (const Request &request : {update, uninstall}) fails(request, "Unknown Exception", "-38");
  EXPECT_EQ(0U, platform.sent.size());
}

TEST_F(ModelRequestsTest, AgentsByCategory) {
  connect();
  using Package = ScriptedPlatform::Package;
  const std::string middle = "my." + kAgent;
  const Package agent = {kAgent, "4.5", {{kKey, "vision"}}}, broken = {middle, std::nullopt, {}},
                no_application = {middle, "9", {}, false};
  const std::tuple<std::vector<Package>, const char *, std::string> rows[] = {
      {{agent, {middle, "9", {{kKey, "vision"}}}}, "vision", kAgent},
      {{{"org.other", "1", {{kKey, "vision"}}}, agent}, "vision", kAgent},
      {{{middle, "1", {{nullptr, "vision"}, {kKey, nullptr}, {kKey, "vision"}}}}, "vision", middle},
      {{{kAgent, "1", {{"AI-agent-category", "vision"}, {kKey, "Vision"}}}}, "vision", ""},
      {{{kAgent, "1", {{kKey, ""}}}}, "", kAgent},
      {{agent}, nullptr, ""},
      {{broken, agent}, "vision", ""},
      {{no_application, agent}, "vision", ""},
      {{agent, broken}, "vision", kAgent}};
  for (const auto &[packages, category, found] : rows) {
    platform.repair();
    platform.packages.insert(platform.packages.end(), packages.begin(), packages.end());
    platform.sent = {{0, 0, 0, 0, ""}};
    EXPECT_EQ(found.empty() ? -22 : 0,
              korvane_svcmgr_ai_request_usable_model_list_with_category(on_models, category, this));
    EXPECT_EQ(found, std::get<std::string>(platform.sent.back()[4]));
    const std::string wanted = category != nullptr ? category : "(null)";
    EXPECT_LOG_HAS(found.empty() ? ": === category [" + wanted + "] ===|E " : "");
  }
}

TEST_F(ModelRequestsTest, Results) {
  connect();
  const std::map<int, std::string> codes = {{0, "0"},   {2, "0"},           {3, "-1073741831"},
                                            {5, "-28"}, {6, "-1073741829"}, {8, "-1073741826"},
                                            {9, "-13"}, {10, "0"}};
  for (int result = -2; result < 14; ++result) {
    const std::string code = codes.count(result) == 1 ? codes.at(result) : "-38";
    EXPECT_EQ("models " + code + " 0", answered(of_category, {result, Count{0}, 0}));
    EXPECT_EQ("progress " + code + " 17 1 -2 150", answered(uninstall, {result, 17, 1, -2, 150}));
  }
}

TEST_F(ModelRequestsTest, Conversions) {
  connect();
  const std::tuple<Parcel, std::string, std::string> rows[] = {
      {{0, Count{0}, 0}, "0", "0"},
      {{0, Count{1}, "a", "1", "t", "", 0}, "0", "0"},
      {{0, Count{2}, "a", "1", "t", "", "b", "2", "u", "d", 1}, "2 [a|1|t|] [b|2|u|d]", "1"},
      {{0, Count{2}, "a", "", "", "", "a", "", "", "", 3}, "2 [a|||] [a|||]", "3"},
      {{0, Count{-4}, 2}, "0", "2"},
      {{0, 2}, "0", "2"},
      {{0, Count{INT_MAX}, "i", "v", "t", "d", 5}, "1 [i|v|t|d]", "5"}};
  for (const Request &request : {usable, described, versions}) {
    for (const auto &[payload, list, count] : rows) {
      EXPECT_EQ("models 0 " + list, answered(request, payload));
      EXPECT_THAT(platform.log, ::testing::HasSubstr("|I Convert: Successful conversion of [" +
                                                     count + "] models.|"));
    }
  }
  EXPECT_LOG_HAS("|I Convert: model [i - v - t - d]|");
  EXPECT_EQ("models -38 0", answered(usable, {})) << "no result";
  EXPECT_EQ("progress -38 17 1 2 3", answered(update, {7, 17, 1, 2, 3}));
  EXPECT_LOG_HAS("D OnReceived: RequestToUpdateCB::OnReceived error_code[7], state[17]|");
  platform.packages.erase(platform.packages.begin());
  answer(4, {0, 17, 1, 2, 3});
  platform.repair();
  answer(4, {0, 17, 1, 2, 3});
  EXPECT_HEARD("progress null 0", "progress 0 17 1 2 3");
  reaction = [] { korvane_svcmgr_disconnect(); };
  EXPECT_EQ("progress 0 20 1 2 3", answered(update, {0, 20, 1, 2, 3}));
  EXPECT_TRUE(platform.proxies.empty()) << "the answer's own port is gone";
}

}  // namespace
