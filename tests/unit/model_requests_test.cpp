#include <algorithm>
#include <climits>

#include "library_test.h"

namespace {

const std::string kAgent = SVCMGR_VENDOR_PREFIX ".agent";
constexpr const char *kCategoryKey = "ai-agent-category";

/** What of a model answer follows the result. */
const Parcel kProgress = {SVCMGR_AI_STATE_START, 1, 2, 50};
const Parcel kNoModels = {Count{0}, 0};

class ModelRequestsTest : public LibraryTest {
 protected:
  ModelRequestsTest() { connect(); }

  /** The delegates that the requests name. */
  enum Kind { kList = 1, kDescribedList = 2, kVersions = 3, kUpdate = 4, kUninstallation = 5 };

  int request_list() { return korvane_svcmgr_ai_request_usable_model_list(on_models, this); }
  int request_described_list() {
    return korvane_svcmgr_ai_request_usable_model_list_with_description(on_models, this);
  }
  int request_list_of(const char *category) {
    return korvane_svcmgr_ai_request_usable_model_list_with_category(on_models, category, this);
  }
  int request_versions() {
    return korvane_svcmgr_ai_request_model_version_list(handles.info.get(), on_models, this);
  }
  int request_update() {
    return korvane_svcmgr_ai_request_to_update(handles.models.get(), on_progress, this);
  }
  int request_uninstallation() {
    return korvane_svcmgr_ai_request_to_uninstall(handles.models.get(), on_progress, this);
  }
  /** An agent of a category, installed after all others. */
  static ScriptedPlatform::Package &install_agent(const std::string &id, const char *category) {
    auto &agent = platform.install(id, "4.5");
    agent.metadata = {{kCategoryKey, category}};
    return agent;
  }
  /** What a successful request sent, without the number of its delegate. */
  static Parcel sent_by(int code) {
    EXPECT_EQ(SVCMGR_ERROR_NONE, code);
    Parcel request = platform.sent.back();
    request.erase(request.begin() + 2);
    return request;
  }
  /** The agent that is asked for its models of category "vision"; empty when there is none. */
  std::string agent_found() {
    const int code = request_list_of("vision");
    EXPECT_EQ(platform.sent.empty() ? SVCMGR_ERROR_INVALID_PARAMETER : SVCMGR_ERROR_NONE, code);
    return platform.sent.empty() ? "" : std::get<std::string>(platform.sent.back()[4]);
  }
  /** Expects that each of the requests fails, logged with a message, and that nothing is sent. */
  void expect_all_fail(int code, const std::string &message) {
    for (const int result : {request_list(), request_described_list(), request_list_of("vision"),
                             request_versions(), request_update(), request_uninstallation()})
      EXPECT_EQ(code, result);
    const std::string error = "error [" + std::to_string(code) + "]";
    const std::string request = "E korvane_svcmgr_ai_request_";
    expect_logged({"E GetUsableModelList: " + message,
                   request + "usable_model_list: connection " + error,
                   "E GetUsableModelListWithDesc: " + message,
                   request + "usable_model_list_with_description: connection " + error,
                   "E GetUsableModelListWithCategory: " + message,
                   request + "usable_model_list_with_category: connection " + error,
                   "E GetModelVersionList: " + message, request + "model_version_list: " + error,
                   "E RequestToUpdate: " + message, request + "to_update: " + error,
                   "E RequestToUninstall: " + message, request + "to_uninstall: " + error});
    EXPECT_THAT(platform.sent, IsEmpty());
  }
  /** What the application receives for an answer to a request for models. */
  Answer models_answered(int result, const Parcel &models) {
    request_list();
    return answered(kList, result, models);
  }
  Answer answered(Kind kind, int result, const Parcel &payload) {
    Parcel answer = {result};
    answer.insert(answer.end(), payload.begin(), payload.end());
    answer_delegate(kind, answer);
    return answers.empty() ? Answer{-77, "not answered"} : answers.back();
  }
  int code_of_result(int result) { return models_answered(result, kNoModels).result; }

  Handles handles;
};

// What is sent.

TEST_F(ModelRequestsTest, AListIsAskedForWithTheOwnIdAndVersion) {
  EXPECT_EQ((Parcel{5, kList, false, "org.example.app", "1.2.3"}), sent_by(request_list()));
  EXPECT_EQ((Parcel{6, kDescribedList, false, "org.example.app", "1.2.3"}),
            sent_by(request_described_list()));
  expect_logged({"D GetUsableModelList: GetUsableModelList",
                 "D GetUsableModelListWithDesc: GetUsableModelListWithDesc"});
}

TEST_F(ModelRequestsTest, TheOwnIdIsAskedForBeforeTheVersion) {
  for (auto request : {korvane_svcmgr_ai_request_usable_model_list,
                       korvane_svcmgr_ai_request_usable_model_list_with_description}) {
    platform.forget();
    request(on_models, this);
    const auto begin = platform.calls.begin(), end = platform.calls.end();
    EXPECT_LT(std::find(begin, end, "app_get_id"), std::find(begin, end, "app_get_version"));
  }
}

TEST_F(ModelRequestsTest, AListOfACategoryIsAskedForWithTheIdAndVersionOfItsAgent) {
  install_agent(kAgent, "vision");
  EXPECT_EQ((Parcel{5, kList, false, kAgent, "4.5"}), sent_by(request_list_of("vision")));
}

TEST_F(ModelRequestsTest, VersionsAreAskedForWithOnlyTheIdOfTheModel) {
  EXPECT_EQ((Parcel{7, kVersions, false, "m1", "", "", "", "org.example.app", "1.2.3"}),
            sent_by(request_versions()));
}

TEST_F(ModelRequestsTest, AnIdIsCutWhenItIsSet) {
  handles.info.set_id(std::string(2049, 'x'));
  EXPECT_EQ(ParcelValue(std::string(2048, 'x')), sent_by(request_versions())[3]);
}

TEST_F(ModelRequestsTest, AnUpdateNamesModelsAndVersions) {
  ModelInfo without_version;
  without_version.set_id("m2");
  without_version.set_title("Only a title");
  handles.models.add(without_version);
  EXPECT_EQ((Parcel{8, kUpdate, false, Count{2}, "m1", "1.0", "", "", "m2", "", "", "", 2}),
            sent_by(request_update()));
  expect_logged({"D RequestToUpdate: [m1, 1.0]", "D RequestToUpdate: [m2, ]"});
}

TEST_F(ModelRequestsTest, AnUninstallationNamesModelsOnly) {
  EXPECT_EQ((Parcel{9, kUninstallation, false, Count{1}, "m1", "", "", "", 1}),
            sent_by(request_uninstallation()));
  expect_logged({"D RequestToUninstall: [m1]"});
}

TEST_F(ModelRequestsTest, AnEmptyListOfModelsIsSent) {
  handles.models = ModelList();
  EXPECT_EQ((Parcel{8, kUpdate, false, Count{0}, 0}), sent_by(request_update()));
}

// What is not sent.

TEST_F(ModelRequestsTest, WithoutAPortAllFail) {
  korvane_svcmgr_disconnect();
  expect_all_fail(SVCMGR_ERROR_NOT_CONNECTED, "Not connected");
}

TEST_F(ModelRequestsTest, WithoutAConnectionAllFail) {
  install_agent(kAgent, "vision");
  korvane_svcmgr_disconnect();
  start_connecting();
  expect_all_fail(SVCMGR_ERROR_INVALID_OPERATION, "Unknown Exception");
}

TEST_F(ModelRequestsTest, AnApplicationWithoutIdOrVersionIsRefused) {
  for (auto *text : {&platform.app_version, &platform.app_id}) {
    *text = text == &platform.app_id ? std::nullopt : std::optional<std::string>("");
    EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, request_list());
    EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, request_described_list());
    EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, request_versions());
  }
  EXPECT_THAT(platform.sent, IsEmpty());
  EXPECT_THAT(platform.log_of(": Failed to get app info."), ::testing::SizeIs(6));
  expect_logged(
      {"E GetAppVersion: Failed to get app version.", "E GetAppId: Failed to get app ID."});
}

TEST_F(ModelRequestsTest, AModelWithoutAnIdIsRefused) {
  handles.info = ModelInfo();
  handles.models.add(handles.info);
  EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, request_versions());
  EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, request_update());
  EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, request_uninstallation());
  EXPECT_THAT(platform.take_log(), Contains(HasSubstr(": Unknown Exception")).Times(3));
  EXPECT_THAT(platform.sent, IsEmpty());
}

// The agent of a category.

TEST_F(ModelRequestsTest, OfSeveralAgentsTheFirstOneIsAsked) {
  install_agent(kAgent, "vision");
  install_agent(kAgent + ".second", "vision");
  EXPECT_EQ(kAgent, agent_found());
}

TEST_F(ModelRequestsTest, APackageOfAnotherVendorIsPassedOver) {
  install_agent("org.other", "vision");
  install_agent(kAgent, "vision");
  EXPECT_EQ(kAgent, agent_found());
}

TEST_F(ModelRequestsTest, TheVendorMayStandInTheMiddleOfAnId) {
  install_agent("my." + kAgent, "vision");
  EXPECT_EQ("my." + kAgent, agent_found());
}

TEST_F(ModelRequestsTest, OtherMetadataIsPassedOver) {
  install_agent(kAgent + ".first", "").metadata = {{kCategoryKey, "Vision"},
                                                   {"AI-agent-category", "vision"}};
  install_agent(kAgent, "vision").metadata = {
      {nullptr, "vision"}, {kCategoryKey, nullptr}, {kCategoryKey, "vision"}};
  EXPECT_EQ(kAgent, agent_found());
}

TEST_F(ModelRequestsTest, APackageThatCannotBeReadEndsTheSearch) {
  for (auto text : {&ScriptedPlatform::Package::id, &ScriptedPlatform::Package::version}) {
    install_agent("broken", "").*text = std::nullopt;
    install_agent(kAgent, "vision");
    EXPECT_EQ("", agent_found());
    platform.repair();
  }
}

TEST_F(ModelRequestsTest, APackageOfTheVendorWithoutAnApplicationEndsTheSearch) {
  install_agent(kAgent + ".first", "").is_application = false;
  install_agent(kAgent, "vision");
  EXPECT_EQ("", agent_found());
}

TEST_F(ModelRequestsTest, AfterTheAgentIsFoundNoPackageIsLookedAt) {
  install_agent(kAgent, "vision");
  install_agent("broken", "").version = std::nullopt;
  EXPECT_EQ(kAgent, agent_found());
}

TEST_F(ModelRequestsTest, AnEmptyCategoryMayBeAskedFor) {
  install_agent(kAgent, "");
  EXPECT_EQ(SVCMGR_ERROR_NONE, request_list_of(""));
}

TEST_F(ModelRequestsTest, ACategoryWithoutAnAgentIsNamedInTheLog) {
  EXPECT_EQ(SVCMGR_ERROR_INVALID_PARAMETER, request_list_of("hearing"));
  EXPECT_EQ(SVCMGR_ERROR_INVALID_PARAMETER, request_list_of(nullptr));
  const std::string function = "GetUsableModelListWithCategory";
  expect_logged({"D " + function + ": === category [hearing] ===",
                 "D " + function + ": === category [(null)] ===",
                 "E " + function + ": No such package for the category.",
                 std::string("E korvane_svcmgr_ai_request_usable_model_list_with_category: "
                             "connection error [-22]")});
}

// What is answered.

TEST_F(ModelRequestsTest, ResultsOfTheServiceManagerBecomeCodes) {
  for (const int success : {0, 2, 10}) EXPECT_EQ(SVCMGR_ERROR_NONE, code_of_result(success));
  EXPECT_EQ(SVCMGR_ERROR_UPDATE_IN_PROGRESS, code_of_result(3));
  EXPECT_EQ(SVCMGR_ERROR_NO_SPACE, code_of_result(5));
  EXPECT_EQ(SVCMGR_ERROR_SERVICE_CODE_6, code_of_result(6));
  EXPECT_EQ(SVCMGR_ERROR_QEL_DISABLED, code_of_result(8));
  EXPECT_EQ(SVCMGR_ERROR_PERMISSION_DENIED, code_of_result(9));
  for (const int other : {-1, 1, 4, 7, 11})
    EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, code_of_result(other));
}

TEST_F(ModelRequestsTest, AnAnswerWithoutAResultIsAFailure) {
  request_list();
  answer_delegate(kList, {});
  EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, answers.back().result);
  EXPECT_EQ("", answers.back().contents);
}

TEST_F(ModelRequestsTest, AFailedRequestBringsItsModelsToo) {
  const Answer answer = models_answered(5, {Count{1}, "a", "1", "t", "", 1});
  EXPECT_EQ(SVCMGR_ERROR_NO_SPACE, answer.result);
  EXPECT_EQ("[a|1|t|]", answer.contents);
}

TEST_F(ModelRequestsTest, ModelsArriveInTheirOrder) {
  const Parcel models = {Count{2}, "b", "2", "u", "d", "a", "1", "t", "", 2};
  EXPECT_EQ("[b|2|u|d][a|1|t|]", models_answered(0, models).contents);
  expect_logged({"I OnReceived: GetUsableModelListCB::OnReceived error_code[0]",
                 "I Convert: conver AIModelList to model_list_handle",
                 "I Convert: model [b - 2 - u - d]",
                 "I Convert: Successful conversion of [2] models."});
}

TEST_F(ModelRequestsTest, AListThatClaimsNoModelsIsEmpty) {
  EXPECT_EQ("", models_answered(0, kNoModels).contents);
  EXPECT_EQ("", models_answered(0, {Count{1}, "a", "1", "t", "", 0}).contents);
}

TEST_F(ModelRequestsTest, AListThatClaimsFewerOrMoreModelsIsWhole) {
  EXPECT_EQ("[a|||][b|||]",
            models_answered(0, {Count{2}, "a", "", "", "", "b", "", "", "", 1}).contents);
  EXPECT_EQ("[a|||]", models_answered(0, {Count{1}, "a", "", "", "", 3}).contents);
  expect_logged({"I Convert: Successful conversion of [3] models."});
}

TEST_F(ModelRequestsTest, ANegativeOrMissingNumberOfModelsIsAnEmptyList) {
  EXPECT_EQ("", models_answered(0, {Count{-4}, 2}).contents);
  EXPECT_EQ("", models_answered(0, {2}).contents);
  expect_logged({"I Convert: Successful conversion of [2] models."});
}

TEST_F(ModelRequestsTest, AListEndsWhereItCannotBeRead) {
  const Parcel models = {Count{INT_MAX}, "a", "1", "t", "d", 5};
  EXPECT_EQ("[a|1|t|d]", models_answered(0, models).contents);
}

TEST_F(ModelRequestsTest, ATextOfAnAnswerIsCutAt2048Characters) {
  const std::string limit(2048, 'x');
  EXPECT_EQ("[" + limit + "|||]",
            models_answered(0, {Count{1}, limit + "y", "", "", "", 1}).contents);
}

TEST_F(ModelRequestsTest, EachTextOfAModelIsSetByItsFunction) {
  models_answered(0, {Count{1}, "a", "1", "t", "", 1});
  Texts expected;
  for (const std::string field : {"id", "version", "title", "description"}) {
    const std::string setter = "korvane_svcmgr_ai_model_info_set_" + field;
    expected.push_back(std::string("D ").append(setter).append(": ").append(setter));
  }
  EXPECT_EQ(expected, platform.log_of("model_info_set_"));
}

TEST_F(ModelRequestsTest, EachKindOfRequestIsAnswered) {
  const Parcel model = {Count{1}, "a", "1", "t", "", 1};
  request_described_list();
  EXPECT_EQ("[a|1|t|]", answered(kDescribedList, 0, model).contents);
  request_versions();
  EXPECT_EQ("[a|1|t|]", answered(kVersions, 0, model).contents);
  request_update();
  EXPECT_EQ("state 17, model 1 of 2, 50 %", answered(kUpdate, 0, kProgress).contents);
  request_uninstallation();
  EXPECT_EQ("state 17, model 1 of 2, 50 %", answered(kUninstallation, 0, kProgress).contents);
  EXPECT_EQ(4U, answers.size());
  expect_logged({"I OnReceived: GetUsableModelListWithDescCB::OnReceived error_code[0]",
                 "D OnReceived: GetModelVersionListCB::OnReceived error_code[0]",
                 "D OnReceived: RequestToUpdateCB::OnReceived error_code[0], state[17]",
                 "D OnReceived: RequestToUninstallCB::OnReceived [17]"});
}

TEST_F(ModelRequestsTest, EachReportOfProgressArrives) {
  request_update();
  answered(kUpdate, 0, kProgress);
  answered(kUpdate, 7, {SVCMGR_AI_STATE_FAILED, 1, -2, 150});
  ASSERT_EQ(2U, answers.size());
  EXPECT_EQ("state 24, model 1 of -2, 150 %", answers[1].contents);
  EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, answers[1].result);
}

TEST_F(ModelRequestsTest, AProgressRecordIsFilledInItsOrder) {
  request_update();
  answered(kUpdate, 0, kProgress);
  const std::string set = "D korvane_svcmgr_ai_progress_set_";
  EXPECT_THAT(platform.log_of(set),
              ElementsAre(set + "index: set [1]", set + "count: set [2]",
                          set + "percentage: set [50]", set + "state: set [17]"));
}

TEST_F(ModelRequestsTest, WithoutTheServiceManagerAnAnswerBringsNoHandle) {
  request_list();
  request_update();
  platform.uninstall_service_manager();
  EXPECT_EQ("none", answered(kList, 0, {Count{1}, "a", "1", "t", "", 1}).contents);
  EXPECT_EQ("none", answered(kUpdate, 0, kProgress).contents);
  EXPECT_EQ(SVCMGR_ERROR_NONE, answers.back().result);
}

TEST_F(ModelRequestsTest, AModelForWhichTheServiceManagerVanishesIsLeftOut) {
  request_list();
  platform.on_log = [](const std::string &line) {
    if (line.find("Convert: model [") != std::string::npos) platform.uninstall_service_manager();
    if (line.find("Convert: Successful") != std::string::npos) platform.repair();
  };
  EXPECT_EQ("", answered(kList, 0, {Count{1}, "a", "1", "t", "", 1}).contents);
}

TEST_F(ModelRequestsTest, AnAnsweredApplicationMayDisconnect) {
  request_update();
  reaction = [] { korvane_svcmgr_disconnect(); };
  EXPECT_EQ("state 17, model 1 of 2, 50 %", answered(kUpdate, 0, kProgress).contents);
  EXPECT_TRUE(platform.proxies.empty());
}

}  // namespace
