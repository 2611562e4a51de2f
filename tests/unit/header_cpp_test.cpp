// The C++ header first: it must stand by itself.
#include "korvane_svcmgr.hpp"
// The fixture, whose helpers use it, comes after it.
#include "library_test.h"

namespace {

namespace svcmgr = korvane::svcmgr;

static_assert(KORVANE_SVCMGR_VERSION > KORVANE_SVCMGR_MAKE_VERSION(0, 999, 999),
              "a greater major number makes a later version");

class CppHeaderTest : public LibraryTest {
 protected:
  /** The code and the text that a call throws. */
  template <typename Call>
  static std::pair<int, std::string> thrown_by(Call call) {
    try {
      call();
    } catch (const std::system_error &error) {
      return {error.code().value(), error.what()};
    }
    return {};
  }
};

TEST_F(CppHeaderTest, ListsAreRangesOfTheirEntries) {
  Handles handles;
  handles.agents.add("");
  EXPECT_EQ(Texts(handles.agents.begin(), handles.agents.end()), (Texts{"agent.one", ""}));
  handles.add_model({"m2", "", "", ""});
  auto entry = handles.models.begin();
  EXPECT_EQ((entry++)->id(), "m1");
  EXPECT_EQ((*entry).id(), "m2");
  EXPECT_EQ(++entry, handles.models.end());
}

TEST_F(CppHeaderTest, NumbersAreWhatWasSet) {
  Progress progress;
  progress.set_state(SVCMGR_AI_STATE_START);
  progress.set_index(1);
  progress.set_count(2);
  progress.set_percentage(30);
  on_progress(0, progress.release(), this);
  EXPECT_HEARD("progress 0 17 1 2 30");
}

TEST_F(CppHeaderTest, FailuresAreThrownWithTheirCode) {
  EXPECT_EQ(thrown_by([] { ModelList().at(0); }).first, SVCMGR_ERROR_OUT_OF_INDEX);
  EXPECT_EQ(thrown_by([] { ModelInfo(nullptr).id(); }).first, SVCMGR_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(thrown_by(svcmgr::is_being_updated).first, SVCMGR_ERROR_NOT_CONNECTED);
  platform.packages.clear();
  EXPECT_EQ(thrown_by([] { AgentList(); }).first, SVCMGR_ERROR_NOT_SUPPORTED);
  EXPECT_EQ(thrown_by([] { svcmgr::check(SVCMGR_ERROR_NO_SPACE, "update"); }).second,
            "update: the service manager has no space left");
}

TEST_F(CppHeaderTest, ErrorCodesHaveNames) {
  EXPECT_STREQ(korvane_svcmgr_error_name(SVCMGR_ERROR_NOT_CONNECTED), "SVCMGR_ERROR_NOT_CONNECTED");
  EXPECT_STREQ(korvane_svcmgr_error_name(7), "UNKNOWN");
}

TEST_F(CppHeaderTest, ErrorCodesEqualTheConditionThatMeansTheSame) {
  EXPECT_EQ(make_error_code(SVCMGR_ERROR_NOT_CONNECTED), std::errc::not_connected);
  EXPECT_EQ(make_error_code(SVCMGR_ERROR_PERMISSION_DENIED), std::errc::permission_denied);
  EXPECT_NE(make_error_code(SVCMGR_ERROR_INVALID_OPERATION), std::errc::function_not_supported);
}

TEST_F(CppHeaderTest, AnUpdateOfListedAgentsSendsTheirNames) {
  connect();
  platform.answer(0);
  svcmgr::request_update(Handles().agents);
  EXPECT_THAT(platform.sent.back(), ::testing::Contains(ParcelValue("agent.one")));
}

TEST_F(CppHeaderTest, AnEmptyLicenceIsNone) {
  connect();
  platform.answer("a licence");
  EXPECT_EQ(svcmgr::get_license_fulltext(), "a licence");
  platform.answer("");
  EXPECT_EQ(svcmgr::get_license_fulltext(), std::nullopt);
}

}  // namespace
