#include <climits>
#include <tuple>

#include "library_test.h"

namespace {

const std::string kAgent = SVCMGR_VENDOR_PREFIX ".agent";
constexpr const char *kKey = "ai-agent-category";

class ModelRequestsTest : public LibraryTest {
 protected:
  struct Request {
    // clang-format off
    std::string wrapper; int kind; Parcel sent; std::string name; std::function<int()> send;
    // clang-format on
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

  Handles handles{true};
  const Parcel own = {"org.example.app", "1.2.3"}, agents = {kAgent, "4.5"},
               model = {"m1", "", "", "", "org.example.app", "1.2.3"},
               updates = {Count{2}, "m1", "1.0", "", "", "m2", "", "", "", 2},
               uninstalls = {Count{2}, "m1", "", "", "", "m2", "", "", "", 2};
#define REQUEST(name, ...) \
#name, [this] { return korvane_svcmgr_ai_request_##name(__VA_ARGS__, this); }
  // clang-format off
  const std::vector<Request> requests = {
      {"GetUsableModelList", 1, own, REQUEST(usable_model_list, on_models)},
      {"GetUsableModelListWithDesc", 2, own, REQUEST(usable_model_list_with_description, on_models)},
      {"GetUsableModelListWithCategory", 1, agents,
       REQUEST(usable_model_list_with_category, on_models, "vision")},
      {"GetModelVersionList", 3, model, REQUEST(model_version_list, handles.info, on_models)},
      {"RequestToUpdate", 4, updates, REQUEST(to_update, handles.models, on_progress)},
      {"RequestToUninstall", 5, uninstalls, REQUEST(to_uninstall, handles.models, on_progress)}};
  // clang-format on
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
  requests[4].send();
  EXPECT_LOG_HAS("|D RequestToUpdate: [m1, 1.0]|D RequestToUpdate: [m2, ]|");
}

TEST_F(ModelRequestsTest, Failures) {
  const auto fail = [&](std::vector<std::size_t> which, const std::string &line,
                        const std::string &code) {
    for (const std::size_t i : which) {
      requests[i].send();
      EXPECT_LOG_HAS("E " + requests[i].wrapper + ": " + line + "|E korvane_svcmgr_ai_request_" +
                     requests[i].name + (i < 3 ? ": connection error [" : ": error [") + code +
                     "]|");
    }
  };
  fail({0, 1, 2, 3, 4, 5}, "Not connected", "-107");
  start_connecting();
  fail({0, 1, 2, 3, 4, 5}, "Unknown Exception", "-38");
  platform.report_connected();
  platform.fail("app_info_create", -9);
  fail({2}, "No such package for the category.", "-22");
  platform.app_version = "";
  fail({0, 1, 3}, "Failed to get app info.", "-38");
  handles.add_model({nullptr, "1.0", nullptr, nullptr});
  fail({4, 5}, "Unknown Exception", "-38");
  EXPECT_EQ(0U, platform.sent.size());
}

TEST_F(ModelRequestsTest, AgentsByCategory) {
  connect();
  const std::string middle = "my." + kAgent;
  const ScriptedPlatform::Package agent = {kAgent, "4.5", {{kKey, "vision"}}},
                                  broken = {middle, std::nullopt, {}};
  // clang-format off
  using Packages = std::vector<ScriptedPlatform::Package>;
  const std::tuple<Packages, const char *, std::string> rows[] = {
      {Packages{agent, {middle, "9", {{kKey, "vision"}}}}, "vision", kAgent},
      {Packages{{"org.other", "1", {{kKey, "vision"}}}, agent}, "vision", kAgent},
      {Packages{{middle, "1", {{nullptr, "vision"}, {kKey, nullptr}, {kKey, "vision"}}}}, "vision", middle},
      {Packages{{kAgent, "1", {{"AI-agent-category", "vision"}, {kKey, "Vision"}}}}, "vision", ""},
      {Packages{{kAgent, "1", {{kKey, ""}}}}, "", kAgent},
      {Packages{agent}, nullptr, ""},
      {Packages{broken, agent}, "vision", ""},
      {Packages{agent, broken}, "vision", kAgent}};
  // clang-format on
  for (const auto &[packages, category, found] : rows) {
    platform.repair();
    platform.packages.insert(platform.packages.end(), packages.begin(), packages.end());
    platform.sent = {{0, 0, 0, 0, ""}};
    EXPECT_EQ(found.empty() ? -22 : 0,
              korvane_svcmgr_ai_request_usable_model_list_with_category(on_models, category, this));
    EXPECT_EQ(found, std::get<std::string>(platform.sent.back()[4]));
  }
}

TEST_F(ModelRequestsTest, Results) {
  connect();
  // clang-format off
  const std::map<int, int> codes = {{0, 0}, {2, 0}, {3, -1073741831}, {5, -28}, {6, -1073741829},
                                    {8, -1073741826}, {9, -13}, {10, 0}};
  // clang-format on
  for (int result = -2; result < 14; ++result) {
    const std::string code = std::to_string(codes.count(result) == 1 ? codes.at(result) : -38);
    EXPECT_EQ("models " + code + " 0", answered(requests[2], {result, Count{0}, 0}));
    EXPECT_EQ("progress " + code + " 17 1 -2 150", answered(requests[5], {result, 17, 1, -2, 150}));
  }
}

TEST_F(ModelRequestsTest, Conversions) {
  connect();
  // clang-format off
  const std::tuple<Parcel, std::string, std::string> rows[] = {
      {Parcel{0, Count{0}, 0}, "0", "0"}, {Parcel{0, Count{1}, "a", "1", "t", "", 0}, "0", "0"},
      {Parcel{0, Count{2}, "a", "1", "t", "", "b", "2", "u", "d", 1}, "2 [a|1|t|] [b|2|u|d]", "1"},
      {Parcel{0, Count{2}, "a", "", "", "", "a", "", "", "", 3}, "2 [a|||] [a|||]", "3"},
      {Parcel{0, Count{-4}, 2}, "0", "2"}, {Parcel{0, 2}, "0", "2"},
      {Parcel{0, Count{INT_MAX}, "i", "v", "t", "d", 5}, "1 [i|v|t|d]", "5"}};
  // clang-format on
  for (const std::size_t i : {0U, 1U, 3U}) {
    for (const auto &[payload, list, count] : rows) {
      EXPECT_EQ("models 0 " + list, answered(requests[i], payload));
      EXPECT_LOG_HAS("|I Convert: Successful conversion of [" + count + "] models.|");
    }
  }
  EXPECT_EQ("progress -38 17 1 2 3", answered(requests[4], {7, 17, 1, 2, 3}));
  EXPECT_LOG_HAS("D OnReceived: RequestToUpdateCB::OnReceived error_code[7], state[17]|");
  platform.packages.erase(platform.packages.begin());
  answer(4, {0, 17, 1, 2, 3});
  platform.repair();
  answer(4, {0, 17, 1, 2, 3});
  EXPECT_HEARD("progress 0 -77 -77 -77 -77", "progress 0 17 1 2 3");
}

TEST_F(ModelRequestsTest, AModelOnItsWayIntoAList) {
  connect();
  korvane_svcmgr_ai_model_list_h list = nullptr;
  const auto keep = [](int, korvane_svcmgr_ai_model_list_h received, void *kept) {
    korvane_svcmgr_ai_model_list_h &place = *static_cast<korvane_svcmgr_ai_model_list_h *>(kept);
    if (place != nullptr) korvane_svcmgr_ai_model_list_destroy(place);
    place = received;
  };
  korvane_svcmgr_ai_request_usable_model_list(keep, &list);
  platform.take_log();
  platform.calls.clear();
  answer(1, {0, Count{1}, "a", "1", "t", "d", 1});
  EXPECT_LOG_HAS(
      "|I korvane_svcmgr_ai_model_info_create: korvane_svcmgr_ai_model_info_create"
      "|I Convert: model [a - 1 - t - d]"
      "|D korvane_svcmgr_ai_model_info_set_id: korvane_svcmgr_ai_model_info_set_id"
      "|D korvane_svcmgr_ai_model_info_set_version: korvane_svcmgr_ai_model_info_set_version"
      "|D korvane_svcmgr_ai_model_info_set_title: korvane_svcmgr_ai_model_info_set_title"
      "|D korvane_svcmgr_ai_model_info_set_description: "
      "korvane_svcmgr_ai_model_info_set_description"
      "|D korvane_svcmgr_ai_model_list_add: korvane_svcmgr_ai_model_list_add"
      "|I korvane_svcmgr_ai_model_info_destroy: korvane_svcmgr_ai_model_info_destroy"
      "|I Convert: Successful conversion of [1] models.|");
  EXPECT_EQ(8, platform.count("package_info_create"))
      << "each of these asks, and the list's create";

  const std::string limit(2048, 'x');
  answer(1, {0, Count{1}, limit + "y", limit, "t", "d", 1});
  korvane_svcmgr_ai_request_to_update(list, on_progress, this);
  EXPECT_EQ(ParcelValue(limit), platform.sent.back()[5]) << "cut";
  EXPECT_EQ(ParcelValue(limit), platform.sent.back()[6]) << "whole";
  korvane_svcmgr_ai_model_list_destroy(list);
}

}  // namespace
