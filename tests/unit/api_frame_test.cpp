// What all exported functions have in common.
#include "api_frame.h"
#include "library_test.h"
#include "package.h"

namespace {

/** What package_info_get_version() returns with a text. */
int result_with_version = 0;

}  // namespace

extern "C" int __real_package_info_get_version(package_info_h package, char **version);
extern "C" int __wrap_package_info_get_version(package_info_h package, char **version) {
  const int error = __real_package_info_get_version(package, version);
  return error != 0 ? error : result_with_version;
}

namespace {

class ApiFrameTest : public LibraryTest {
 protected:
  /** Expects that a function fails and logs these lines. */
  void expect_failure(const ApiCall &function, int code, const Texts &lines) {
    platform.take_log();
    EXPECT_EQ(code, function.call(arguments)) << function.name;
    EXPECT_EQ(lines, platform.take_log());
  }

  Arguments arguments;
};

TEST_F(ApiFrameTest, WithoutTheServiceManagerNothingIsDone) {
  connect();
  platform.uninstall_service_manager();
  for (const ApiCall &function : kApiCalls)
    expect_failure(function, SVCMGR_ERROR_NOT_SUPPORTED,
                   {function.entry, "E " + function.name + ": Not supported"});
  EXPECT_TRUE(is_connected());
  EXPECT_EQ(1U, platform.subscriptions.size());
  platform.repair();
  arguments.expect_unchanged();
}

TEST_F(ApiFrameTest, AMissingServiceManagerCountsBeforeANullPointer) {
  platform.uninstall_service_manager();
  EXPECT_EQ(SVCMGR_ERROR_NOT_SUPPORTED, korvane_svcmgr_connect(nullptr, nullptr));
}

TEST_F(ApiFrameTest, AnyOtherFailureToFindTheServiceManagerIsIgnored) {
  platform.failures["package_info_create"] = -EIO;
  EXPECT_EQ("m1|1.0|Title|Description", describe(Handles().info));
}

TEST_F(ApiFrameTest, NullPointersAreRefused) {
  connect();
  for (const ApiCall &function : kApiCalls)
    for (int pointer = 0; pointer < function.pointers; ++pointer) {
      arguments.null_pointer = pointer;
      expect_failure(function, SVCMGR_ERROR_INVALID_PARAMETER,
                     {function.entry, function.null_line});
    }
  arguments.expect_unchanged();
  EXPECT_THAT(platform.sent, IsEmpty());
}

TEST_F(ApiFrameTest, WithoutAConnectionNothingIsSent) {
  start_connecting();
  for (const ApiCall &function : kApiCalls)
    if ((function.needs & kConnection) != 0)
      expect_failure(function, SVCMGR_ERROR_NOT_CONNECTED,
                     {function.entry, "I " + function.name + ": not initialized"});
  arguments.expect_unchanged();
  EXPECT_EQ(0, platform.count("rpc_port_parcel_create"));
}

TEST_F(ApiFrameTest, TheApiLevelFollowsFromTheVersion) {
  for (const char *version : {"2.3.0", "3", "0.20003.1", "2.3-b", "300000.0.0", "1.2147483647"})
    EXPECT_EQ(11, convert_version_to_api_level(version)) << version;
  for (const char *version : {"2.0.2", "2.2.9", "1.7", "0.10007", "2", "0.20002"})
    EXPECT_EQ(8, convert_version_to_api_level(version)) << version;
  for (const char *version : {"1.6.9", "", "x2.3.0", "-3.0"})
    EXPECT_EQ(-1, convert_version_to_api_level(version)) << version;
  EXPECT_EQ(-1, convert_version_to_api_level(nullptr));
}

TEST_F(ApiFrameTest, AVersionCountsEvenIfItsLookupFails) {
  result_with_version = -EIO;
  EXPECT_EQ(11, get_svcmgr_api_level());
  result_with_version = 0;
}

TEST_F(ApiFrameTest, AnOlderServiceManagerSupportsFewerFunctions) {
  const std::pair<std::optional<std::string>, unsigned> versions[] = {
      {"2.3", 0},
      {"1.7", kLevel11},
      {"1.6", kLevel8 | kLevel11},
      {std::nullopt, kLevel8 | kLevel11}};
  arguments.null_pointer = 0;
  for (const auto &[version, unsupported] : versions) {
    platform.service_manager().version = version;
    for (const ApiCall &function : kApiCalls)
      if ((function.needs & unsupported) != 0) {
        expect_failure(function, SVCMGR_ERROR_NOT_SUPPORTED_VERSION, {function.entry});
      } else {
        EXPECT_NE(SVCMGR_ERROR_NOT_SUPPORTED_VERSION, function.call(arguments)) << function.name;
      }
  }
}

TEST_F(ApiFrameTest, AServiceManagerThatCannotBeLookedUpIsTooOld) {
  platform.failures["package_info_create"] = -EIO;
  EXPECT_EQ(SVCMGR_ERROR_NOT_SUPPORTED_VERSION,
            korvane_svcmgr_ai_request_usable_model_list(on_models, this));
}

}  // namespace
