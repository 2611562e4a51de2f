// The C++ header first: it must stand by itself.
#include "korvane_svcmgr.hpp"
// The fixture, whose helpers use it, comes after it.
#include "library_test.h"

namespace {

namespace svcmgr = korvane::svcmgr;

class CppHeaderTest : public LibraryTest {
 protected:
  /** What a call throws. */
  template <typename Call>
  static std::system_error thrown_by(Call call) {
    try {
      call();
    } catch (const std::system_error &error) {
      return error;
    }
    return std::system_error(std::error_code());
  }
};

TEST_F(CppHeaderTest, AnIteratorOfAListWalksOverItsEntries) {
  const Handles handles;
  auto entry = handles.models.begin();
  EXPECT_EQ((entry++)->id(), "m1");
  EXPECT_EQ(entry, handles.models.end());
}

TEST_F(CppHeaderTest, FailuresAreThrownWithTheirCode) {
  EXPECT_EQ(thrown_by([] { ModelList().at(0); }).code(), SVCMGR_ERROR_OUT_OF_INDEX);
  EXPECT_EQ(thrown_by([] { ModelInfo(nullptr).id(); }).code(), SVCMGR_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(thrown_by(svcmgr::is_being_updated).code(), SVCMGR_ERROR_NOT_CONNECTED);
  platform.uninstall_service_manager();
  EXPECT_EQ(thrown_by([] { AgentList(); }).code(), SVCMGR_ERROR_NOT_SUPPORTED);
}

TEST_F(CppHeaderTest, AFailureSaysWhatWasTriedAndWhatItMeans) {
  EXPECT_STREQ(thrown_by([] { svcmgr::check(SVCMGR_ERROR_NO_SPACE, "update"); }).what(),
               "update: the service manager has no space left");
}

TEST_F(CppHeaderTest, ErrorCodesEqualTheConditionThatMeansTheSame) {
  EXPECT_EQ(make_error_code(SVCMGR_ERROR_NOT_CONNECTED), std::errc::not_connected);
  EXPECT_NE(make_error_code(SVCMGR_ERROR_INVALID_OPERATION), std::errc::function_not_supported);
}

TEST_F(CppHeaderTest, AnEmptyLicenceIsNone) {
  connect();
  platform.answer("a licence");
  EXPECT_EQ(svcmgr::get_license_fulltext(), "a licence");
  platform.answer("");
  EXPECT_EQ(svcmgr::get_license_fulltext(), std::nullopt);
}

}  // namespace
