#include <climits>

#include "library_test.h"

namespace {

const std::string kAgent = SVCMGR_VENDOR_PREFIX ".agent";
constexpr const char *kCategoryKey = "ai-agent-category";

/** What of an answer follows the result. */
const Parcel kProgress = {SVCMGR_AI_STATE_START, 1, 2, 50};
const Parcel kOneModel = {Count{1}, "a", "1", "t", "", 1};

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
  static void install_agent(const std::string &id, const char *category) {
    platform.install(id, "4.5").metadata = {{kCategoryKey, category}};
  }
  /** What a successful request sent, without the number of its delegate. */
  static Parcel sent_by(int code) {
    EXPECT_EQ(SVCMGR_ERROR_NONE, code);
    Parcel request = platform.sent.back();
    request.erase(request.begin() + 2);
    return request;
  }
  /** Expects that no request is sent, and that each failure is logged. */
  void expect_all_fail(int code, const std::string &reason) {
    platform.forget();
    for (const int result : {request_list(), request_described_list(), request_list_of("vision"),
                             request_versions(), request_update(), request_uninstallation()})
      EXPECT_EQ(code, result);
    EXPECT_THAT(platform.sent, IsEmpty());
    EXPECT_THAT(platform.log, Contains(HasSubstr(": " + reason)).Times(6));
    EXPECT_THAT(platform.log, Contains(HasSubstr("error [" + std::to_string(code) + "]")).Times(6));
  }
  Answer answered(Kind kind, int result, const Parcel &payload) {
    Parcel answer = {result};
    answer.insert(answer.end(), payload.begin(), payload.end());
    answer_delegate(kind, answer);
    return answers.empty() ? Answer{-77, "not answered"} : answers.back();
  }
  /** What the application receives for an answer to a request for models. */
  Answer models_answered(int result, const Parcel &models) {
    request_list();
    return answered(kList, result, models);
  }
  int code_of_result(int result) { return models_answered(result, kOneModel).result; }

  Handles handles;
};

// What is sent.

TEST_F(ModelRequestsTest, AListIsAskedForWithTheOwnIdAndVersion) {
  EXPECT_EQ((Parcel{5, kList, false, "org.example.app", "1.2.3"}), sent_by(request_list()));
  EXPECT_EQ((Parcel{6, kDescribedList, false, "org.example.app", "1.2.3"}),
            sent_by(request_described_list()));
}

TEST_F(ModelRequestsTest, VersionsAreAskedForWithOnlyTheIdOfTheModel) {
  EXPECT_EQ((Parcel{7, kVersions, false, "m1", "", "", "", "org.example.app", "1.2.3"}),
            sent_by(request_versions()));
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
  handles.models = ModelList();
  EXPECT_EQ((Parcel{9, kUninstallation, false, Count{0}, 0}), sent_by(request_uninstallation()));
}

// What is not sent.

TEST_F(ModelRequestsTest, WithoutAConnectionAllFail) {
  install_agent(kAgent, "vision");
  korvane_svcmgr_disconnect();
  expect_all_fail(SVCMGR_ERROR_NOT_CONNECTED, "Not connected");
  start_connecting();
  expect_all_fail(SVCMGR_ERROR_INVALID_OPERATION, "Unknown Exception");
  expect_logged({"P GetUsableModelList: Not connected", "E GetUsableModelList: Unknown Exception",
                 "E korvane_svcmgr_ai_request_usable_model_list: connection error [-38]"});
}

TEST_F(ModelRequestsTest, AnApplicationWithoutIdOrVersionIsRefused) {
  for (auto *text : {&platform.app_version, &platform.app_id}) {
    *text = std::nullopt;
    platform.forget();
    EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, request_list());
    EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, request_described_list());
    EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, request_versions());
    EXPECT_THAT(platform.sent, IsEmpty());
    EXPECT_THAT(platform.log, Contains(HasSubstr(": Failed to get app info.")).Times(3));
  }
  EXPECT_EQ(0, platform.count("app_get_version")) << "the ID is asked for first";
  expect_logged({"E GetAppId: Failed to get app ID."});
}

TEST_F(ModelRequestsTest, AModelWithoutAnIdIsRefused) {
  handles.info = ModelInfo();
  handles.models.add(handles.info);
  EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, request_versions());
  EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, request_update());
  EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, request_uninstallation());
  EXPECT_THAT(platform.sent, IsEmpty());
}

// The agent of a category.

TEST_F(ModelRequestsTest, TheFirstAgentOfTheVendorAndCategoryIsAsked) {
  install_agent("org.other", "vision");
  install_agent(kAgent + ".hearing", "hearing");
  platform.install(kAgent + ".damaged", "1").metadata = {{nullptr, "vision"},
                                                         {kCategoryKey, nullptr}};
  install_agent("my." + kAgent, "vision");
  install_agent(kAgent, "vision");
  EXPECT_EQ((Parcel{5, kList, false, "my." + kAgent, "4.5"}), sent_by(request_list_of("vision")));
}

TEST_F(ModelRequestsTest, APackageThatCannotBeReadEndsTheSearch) {
  platform.install("org.other", "").version = std::nullopt;
  install_agent(kAgent, "vision");
  EXPECT_EQ(SVCMGR_ERROR_INVALID_PARAMETER, request_list_of("vision"));
  platform.repair();
  platform.failures["app_info_create"] = -EIO;
  install_agent(kAgent, "vision");
  EXPECT_EQ(SVCMGR_ERROR_INVALID_PARAMETER, request_list_of("vision"));
}

TEST_F(ModelRequestsTest, ACategoryWithoutAnAgentIsNamedInTheLog) {
  EXPECT_EQ(SVCMGR_ERROR_INVALID_PARAMETER, request_list_of("hearing"));
  EXPECT_EQ(SVCMGR_ERROR_INVALID_PARAMETER, request_list_of(nullptr));
  const std::string function = "GetUsableModelListWithCategory";
  expect_logged({"D " + function + ": === category [hearing] ===",
                 "D " + function + ": === category [(null)] ===",
                 "E " + function + ": No such package for the category."});
}

// What is answered.

TEST_F(ModelRequestsTest, ResultsOfTheServiceManagerBecomeCodes) {
  for (const int success : {0, 2, 10}) EXPECT_EQ(SVCMGR_ERROR_NONE, code_of_result(success));
  EXPECT_EQ(SVCMGR_ERROR_UPDATE_IN_PROGRESS, code_of_result(3));
  EXPECT_EQ(SVCMGR_ERROR_NO_SPACE, code_of_result(5));
  EXPECT_EQ(SVCMGR_ERROR_SERVICE_CODE_6, code_of_result(6));
  EXPECT_EQ(SVCMGR_ERROR_QEL_DISABLED, code_of_result(8));
  EXPECT_EQ(SVCMGR_ERROR_PERMISSION_DENIED, code_of_result(9));
  for (const int other : {-1, 1, 11})
    EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, code_of_result(other));
}

TEST_F(ModelRequestsTest, ModelsArriveInTheirOrderWithAnyResult) {
  const Parcel models = {Count{2}, "b", "2", "u", "d", "a", "1", "t", "", 2};
  EXPECT_EQ("[b|2|u|d][a|1|t|]", models_answered(5, models).contents);
  expect_logged({"I OnReceived: GetUsableModelListCB::OnReceived error_code[5]",
                 "I Convert: conver AIModelList to model_list_handle",
                 "I Convert: model [b - 2 - u - d]",
                 "I Convert: Successful conversion of [2] models."});
}

TEST_F(ModelRequestsTest, AListIsWholeIfItClaimsAnyModel) {
  const Parcel two_models = {Count{2}, "a", "", "", "", "b", "", "", ""};
  for (const int claimed : {1, 3}) {
    Parcel models = two_models;
    models.emplace_back(claimed);
    EXPECT_EQ("[a|||][b|||]", models_answered(0, models).contents);
  }
  EXPECT_EQ("", models_answered(0, two_models).contents);
}

TEST_F(ModelRequestsTest, AListEndsWhereItCannotBeRead) {
  EXPECT_EQ("[a|1|t|d]", models_answered(0, {Count{INT_MAX}, "a", "1", "t", "d", 5}).contents);
  EXPECT_EQ("", models_answered(0, {Count{-4}, 2}).contents);
}

TEST_F(ModelRequestsTest, EachTextOfAModelIsSetByItsFunction) {
  models_answered(0, kOneModel);
  const std::string set = "korvane_svcmgr_ai_model_info_set_", line = "D " + set;
  EXPECT_THAT(
      platform.log_of(set),
      ElementsAre(line + "id: " + set + "id", line + "version: " + set + "version",
                  line + "title: " + set + "title", line + "description: " + set + "description"));
}

TEST_F(ModelRequestsTest, EachKindOfRequestIsAnswered) {
  request_described_list();
  EXPECT_EQ("[a|1|t|]", answered(kDescribedList, 0, kOneModel).contents);
  request_versions();
  EXPECT_EQ("[a|1|t|]", answered(kVersions, 0, kOneModel).contents);
  request_update();
  EXPECT_EQ("state 17, model 1 of 2, 50 %", answered(kUpdate, 0, kProgress).contents);
  request_uninstallation();
  EXPECT_EQ("state 17, model 1 of 2, 50 %", answered(kUninstallation, 0, kProgress).contents);
  EXPECT_EQ(4U, answers.size());
  expect_logged({"D GetUsableModelListWithDesc: GetUsableModelListWithDesc",
                 "I OnReceived: GetUsableModelListWithDescCB::OnReceived error_code[0]",
                 "D GetModelVersionList: GetModelVersionList",
                 "D OnReceived: GetModelVersionListCB::OnReceived error_code[0]",
                 "D RequestToUninstall: RequestToUninstall",
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
  platform.uninstall_service_manager();
  EXPECT_EQ("none", answered(kList, 0, kOneModel).contents);
  EXPECT_EQ(SVCMGR_ERROR_NONE, answers.back().result);
}

TEST_F(ModelRequestsTest, AModelForWhichTheServiceManagerVanishesIsLeftOut) {
  request_list();
  platform.on_log = [](const std::string &line) {
    if (line.find("Convert: model [") != std::string::npos) platform.uninstall_service_manager();
    if (line.find("Convert: Successful") != std::string::npos) platform.repair();
  };
  EXPECT_EQ("", answered(kList, 0, kOneModel).contents);
}

TEST_F(ModelRequestsTest, AnAnsweredApplicationMayDisconnect) {
  request_update();
  reaction = [] { korvane_svcmgr_disconnect(); };
  EXPECT_EQ("state 17, model 1 of 2, 50 %", answered(kUpdate, 0, kProgress).contents);
  EXPECT_TRUE(platform.proxies.empty());
}

}  // namespace
