// The C++ header first: it must stand by itself.
#include "korvane_svcmgr.hpp"
// The fixture comes after it.
#include <algorithm>
#include <utility>
#include <vector>

#include "library_test.h"

namespace {

using korvane::svcmgr::AgentList;
using korvane::svcmgr::ModelInfo;
using korvane::svcmgr::ModelList;
using korvane::svcmgr::Progress;

class CppHeaderTest : public LibraryTest {
 protected:
  /** How often the library was called since the last look at its log. */
  int calls_of(const std::string &function) {
    const std::string log = platform.take_log(), entry = "I korvane_svcmgr_" + function + ": ";
    int calls = 0;
    for (std::size_t at = log.find(entry); at != std::string::npos; at = log.find(entry, at + 1)) {
      ++calls;
    }
    return calls;
  }

  /** The code that a call throws; none when it succeeds. */
  template <typename Call>
  static std::error_code thrown_by(Call call) {
    try {
      call();
      return {};
    } catch (const std::system_error &error) {
      return error.code();
    }
  }
};

TEST_F(CppHeaderTest, AHandleIsReleasedOnceByItsLastOwner) {
  korvane_svcmgr_agent_list_h released = nullptr;
  {
    AgentList first;
    AgentList second = std::move(first);
    EXPECT_FALSE(first);
    const korvane_svcmgr_agent_list_h raw = second.get();
    AgentList third(second.release());
    EXPECT_EQ(third.get(), raw);
    EXPECT_EQ(calls_of("agent_list_destroy"), 0) << "it only changed hands";
    third = AgentList();
    EXPECT_EQ(calls_of("agent_list_destroy"), 1) << "the handle that was replaced";
    released = AgentList().release();
  }
  EXPECT_EQ(calls_of("agent_list_destroy"), 1) << "the third's, and not the released one";
  EXPECT_EQ(korvane_svcmgr_agent_list_destroy(released), SVCMGR_ERROR_NONE);
}

TEST_F(CppHeaderTest, FieldsAreWhatWasSet) {
  ModelInfo model;
  EXPECT_EQ(model.id(), std::nullopt);
  model.set_id("m1");
  model.set_version("1.0");
  model.set_title("");
  model.set_description("a model");
  EXPECT_EQ(describe(model.get()), "m1|1.0||a model");
  EXPECT_EQ(model.id(), "m1");
  EXPECT_EQ(model.version(), "1.0");
  EXPECT_EQ(model.title(), "");
  EXPECT_EQ(model.description(), "a model");

  Progress progress;
  progress.set_state(SVCMGR_AI_STATE_START);
  progress.set_index(1);
  progress.set_count(2);
  progress.set_percentage(30);
  const std::vector<int> values = {progress.state(), progress.index(), progress.count(),
                                   progress.percentage()};
  EXPECT_EQ(values, (std::vector<int>{17, 1, 2, 30}));
}

TEST_F(CppHeaderTest, ListsAreRangesOfTheirEntries) {
  AgentList agents;
  EXPECT_TRUE(agents.empty());
  const std::vector<std::string> names = {"one", "", "three"};
  for (const std::string &name : names) agents.add(name);
  EXPECT_EQ(std::vector<std::string>(agents.begin(), agents.end()), names);
  EXPECT_EQ(agents.at(2), "three");

  ModelList models;
  for (const char *id : {"first", "second"}) {
    ModelInfo model;
    model.set_id(id);
    models.add(model);
  }
  std::string seen;
  for (const ModelInfo &model : models) seen += model.id().value() + " ";
  EXPECT_EQ(seen, "first second ");
  auto found = std::find_if(models.begin(), models.end(),
                            [](const ModelInfo &model) { return model.id() == "second"; });
  ASSERT_NE(found, models.end());
  EXPECT_EQ(found->id(), "second");
  EXPECT_EQ(found++, std::next(models.begin()));
  EXPECT_EQ(found, models.end());
}

TEST_F(CppHeaderTest, FailuresAreThrownWithTheirCode) {
  const ModelList models;
  EXPECT_EQ(thrown_by([&] { models.at(0); }), SVCMGR_ERROR_OUT_OF_INDEX);
  EXPECT_EQ(thrown_by([] { ModelInfo(nullptr).id(); }), SVCMGR_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(thrown_by(korvane::svcmgr::is_being_updated), SVCMGR_ERROR_NOT_CONNECTED);
  platform.packages.clear();
  EXPECT_EQ(thrown_by([] { AgentList(); }), SVCMGR_ERROR_NOT_SUPPORTED);
  platform.repair();

  try {
    korvane::svcmgr::check(SVCMGR_ERROR_NO_SPACE, "update");
    ADD_FAILURE() << "nothing was thrown";
  } catch (const std::system_error &error) {
    EXPECT_STREQ(error.what(), "update: the service manager has no space left");
  }
  EXPECT_STREQ(korvane::svcmgr::describe_error(-28).name, "SVCMGR_ERROR_NO_SPACE");
  EXPECT_STREQ(korvane::svcmgr::describe_error(7).name, "UNKNOWN");
}

TEST_F(CppHeaderTest, AnswersOfTheServiceAreReturned) {
  connect();
  platform.answer(13);
  EXPECT_EQ(korvane::svcmgr::get_agent_api_level(), 13);
  platform.answer("a licence");
  EXPECT_EQ(korvane::svcmgr::get_license_fulltext(), "a licence");
  platform.answer("");
  EXPECT_EQ(korvane::svcmgr::get_license_fulltext(), std::nullopt);
  EXPECT_FALSE(korvane::svcmgr::is_being_updated());
}

}  // namespace
