// What all exported functions have in common.
#include "api_frame.h"
#include "library_test.h"

namespace {

class ApiFrameTest : public LibraryTest {
 protected:
  /** Expects that a function fails, and logs its entry and one line. */
  static void expect_failure(const ApiCall &function, Arguments &arguments, int code,
                             const std::string &message) {
    platform.take_log();
    EXPECT_EQ(code, function.call(arguments)) << function.name;
    EXPECT_THAT(platform.take_log(),
                ElementsAre(function.entry, "E " + function.name + ": " + message));
    EXPECT_TRUE(arguments.outputs_untouched()) << function.name;
  }
  /** Whether a function finds the service manager too old, and logs only its entry then. */
  static bool finds_too_old(const ApiCall &function) {
    Arguments nothing_given(false, false);
    platform.take_log();
    if (function.call(nothing_given) != SVCMGR_ERROR_NOT_SUPPORTED_VERSION) return false;
    EXPECT_THAT(platform.take_log(), ElementsAre(function.entry));
    return true;
  }
  static void expect_level(int level, const Texts &versions) {
    for (const std::string &version : versions)
      EXPECT_EQ(level, convert_version_to_api_level(version.c_str())) << version;
  }
};

TEST_F(ApiFrameTest, WithoutTheServiceManagerNothingIsDone) {
  connect();
  Arguments arguments;
  platform.uninstall_service_manager();
  for (const ApiCall &function : kApiCalls)
    expect_failure(function, arguments, SVCMGR_ERROR_NOT_SUPPORTED, "Not supported");
  EXPECT_TRUE(is_connected());
  EXPECT_EQ(1U, platform.subscriptions.size());
  platform.repair();
  EXPECT_EQ("state 0, model 0 of 0, 0 %", describe(arguments.handles.progress));
  EXPECT_EQ("m1|1.0|Title|Description", describe(arguments.handles.info));
}

TEST_F(ApiFrameTest, AMissingServiceManagerCountsBeforeAMissingPointer) {
  platform.uninstall_service_manager();
  EXPECT_EQ(SVCMGR_ERROR_NOT_SUPPORTED, korvane_svcmgr_connect(nullptr, nullptr));
}

TEST_F(ApiFrameTest, AnyOtherFailureToFindTheServiceManagerIsIgnored) {
  platform.failures["package_info_create"] = -EIO;
  EXPECT_EQ("m1|1.0|Title|Description", describe(Handles().info));
}

TEST_F(ApiFrameTest, NullHandlesAreRefused) {
  Arguments arguments(false, true);
  for (const ApiCall &function : kApiCalls)
    if (function.has(kTakesHandle))
      expect_failure(function, arguments, SVCMGR_ERROR_INVALID_PARAMETER, function.null_message);
}

TEST_F(ApiFrameTest, OtherNullPointersAreRefused) {
  Arguments arguments(true, false);
  for (const ApiCall &function : kApiCalls)
    if (function.has(kTakesOther))
      expect_failure(function, arguments, SVCMGR_ERROR_INVALID_PARAMETER, function.null_message);
  EXPECT_EQ("[m1|1.0|Title|Description]", describe(arguments.handles.models));
}

TEST_F(ApiFrameTest, ANullModelIsNotAdded) {
  const ModelList models;
  EXPECT_EQ(SVCMGR_ERROR_INVALID_PARAMETER,
            korvane_svcmgr_ai_model_list_add(models.get(), nullptr));
  EXPECT_TRUE(models.empty());
}

TEST_F(ApiFrameTest, WithoutAConnectionNothingIsSent) {
  start_connecting();
  Arguments a;
  EXPECT_EQ(SVCMGR_ERROR_NOT_CONNECTED, korvane_svcmgr_get_agent_api_level(&a.number_out));
  EXPECT_EQ(SVCMGR_ERROR_NOT_CONNECTED, korvane_svcmgr_get_license_fulltext(&a.text_out));
  EXPECT_EQ(SVCMGR_ERROR_NOT_CONNECTED, korvane_svcmgr_request_update());
  EXPECT_EQ(SVCMGR_ERROR_NOT_CONNECTED,
            korvane_svcmgr_request_update_with_list(a.agents(), nullptr));
  EXPECT_EQ(SVCMGR_ERROR_NOT_CONNECTED, korvane_svcmgr_is_being_updated(&a.truth_out));
  EXPECT_THAT(platform.take_log(), Contains(HasSubstr(": not initialized")).Times(5));
  EXPECT_TRUE(a.outputs_untouched());
  EXPECT_THAT(platform.sent, IsEmpty());
  EXPECT_EQ(0, platform.count("rpc_port_parcel_create"));
}

TEST_F(ApiFrameTest, TheLackOfAConnectionIsLoggedAsInformation) {
  korvane_svcmgr_request_update();
  expect_logged({"I korvane_svcmgr_request_update: not initialized"});
}

TEST_F(ApiFrameTest, FromVersion2_3OnLevelIs11) {
  expect_level(11, {"2.3.0", "3", "0.20003.1", "2.3-b", "300000.0.0", "1.2147483647"});
}

TEST_F(ApiFrameTest, FromVersion1_7OnLevelIs8) {
  expect_level(8, {"2.0.2", "2.2.9", "1.7", "0.10007", "2", "0.20002"});
}

TEST_F(ApiFrameTest, OtherVersionsHaveNoLevel) {
  expect_level(-1, {"1.6.9", "", "x2.3.0", "-3.0"});
  EXPECT_EQ(-1, convert_version_to_api_level(nullptr));
}

TEST_F(ApiFrameTest, NoFunctionFindsVersion2_3TooOld) {
  platform.service_manager().version = "2.3";
  for (const ApiCall &function : kApiCalls) EXPECT_FALSE(finds_too_old(function)) << function.name;
}

TEST_F(ApiFrameTest, Version1_7IsTooOldForSome) {
  platform.service_manager().version = "1.7";
  for (const ApiCall &function : kApiCalls)
    EXPECT_EQ(function.has(kNeedsVersion23), finds_too_old(function)) << function.name;
}

TEST_F(ApiFrameTest, AnOlderOrUnreadableVersionIsTooOldForMore) {
  for (const auto &version : {std::optional<std::string>("1.6"), {}}) {
    platform.service_manager().version = version;
    for (const ApiCall &function : kApiCalls)
      EXPECT_EQ(function.has(kNeedsVersion17) || function.has(kNeedsVersion23),
                finds_too_old(function))
          << function.name;
  }
}

TEST_F(ApiFrameTest, AServiceManagerThatCannotBeLookedUpIsTooOld) {
  platform.failures["package_info_create"] = -EIO;
  EXPECT_EQ(SVCMGR_ERROR_NOT_SUPPORTED_VERSION,
            korvane_svcmgr_ai_request_usable_model_list(on_models, this));
}

}  // namespace
