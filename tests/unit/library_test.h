/** What the tests of the library share: the application's side of it. */
#ifndef KORVANE_TESTS_UNIT_LIBRARY_TEST_H_
#define KORVANE_TESTS_UNIT_LIBRARY_TEST_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "SvcMgrAppProxyHandler.h"
#include "korvane_svcmgr.hpp"
#include "scripted_platform.h"

using korvane::svcmgr::AgentList;
using korvane::svcmgr::ModelInfo;
using korvane::svcmgr::ModelList;
using korvane::svcmgr::Progress;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/** The four texts of a model, with "|" between them; "unset" for those without a value. */
std::string describe(const ModelInfo &info);
/** Each entry in brackets; "none" without a list. */
std::string describe(const ModelList &list);
std::string describe(const Progress &progress);

/** One application, whose callbacks record what they receive. Leaves the library idle. */
class LibraryTest : public ::testing::Test {
 protected:
  LibraryTest() { platform.reset(); }
  ~LibraryTest() override;
  void TearDown() override;

  int start_connecting() { return korvane_svcmgr_connect(on_connection, this); }
  /** Connects, and forgets what was recorded on the way. */
  void connect() {
    ASSERT_EQ(SVCMGR_ERROR_NONE, start_connecting());
    platform.report_connected();
    platform.forget();
    connection_states.clear();
  }
  static bool is_connected() { return SvcMgrAppProxyHandler::GetInstance().IsConnected(); }

  /** Kinds of delegate. */
  enum Delegate { kModels = 1, kUpdate = 4 };

  // What the service manager does.
  static void announce_update() { platform.emit(".agent_status", {{"Update", "announced"}}); }
  static void announce_launch() { platform.emit(".agent_status", {{"Launch", "announced"}}); }
  static void lose_connection() { platform.report_disconnected(); }
  static void start_update() { platform.emit(".update_status", {{"Start", Texts{"agent.one"}}}); }
  static void complete_update() { platform.emit(".update_status", {{"Complete", "done"}}); }
  /** Answers the last request with a kind of delegate. */
  static void answer_delegate(int kind, const Parcel &payload);

  /** Expects lines in the log, among others. */
  static void expect_logged(const Texts &lines) {
    EXPECT_THAT(platform.log, ::testing::IsSupersetOf(lines));
  }

  /** A folder of the test's own. */
  std::filesystem::path directory();

  // Each takes the test as user data.
  static void on_connection(int result, korvane_svcmgr_connection_state_e state, void *test) {
    const AllocationScope library(false);
    const bool rejected = state == SVCMGR_CONNECTION_REJECTED;
    EXPECT_EQ(rejected ? SVCMGR_ERROR_PERMISSION_DENIED : SVCMGR_ERROR_NONE, result);
    of(test).connection_states.push_back(state);
    of(test).react();
  }
  static void on_update_status(korvane_svcmgr_update_status_e status, void *test) {
    const AllocationScope library(false);
    of(test).update_statuses.push_back(status);
    of(test).react();
  }
  static void on_model_status(int result, korvane_svcmgr_ai_state_e state, void *test) {
    const AllocationScope library(false);
    EXPECT_EQ(SVCMGR_ERROR_NONE, result);
    of(test).model_states.push_back(state);
  }
  static void on_models(int result, korvane_svcmgr_ai_model_list_h list, void *test) {
    const AllocationScope library(false);
    of(test).answers.push_back({result, describe(ModelList(list))});
    of(test).react();
  }
  static void on_progress(int result, korvane_svcmgr_ai_progress_h progress, void *test) {
    const AllocationScope library(false);
    of(test).answers.push_back({result, describe(Progress(progress))});
    of(test).react();
  }
  // These take null as user data, and do nothing.
  static void ignore_connection(int, korvane_svcmgr_connection_state_e, void *none) {
    EXPECT_EQ(nullptr, none);
  }
  static void ignore_update_status(korvane_svcmgr_update_status_e, void *none) {
    EXPECT_EQ(nullptr, none);
  }
  static void ignore_model_status(int, korvane_svcmgr_ai_state_e, void *none) {
    EXPECT_EQ(nullptr, none);
  }

  /** The answer to a model request. */
  struct Answer {
    int result;
    std::string contents;  ///< of the list or the progress record; "none" without one
  };
  std::vector<korvane_svcmgr_connection_state_e> connection_states;
  std::vector<korvane_svcmgr_update_status_e> update_statuses;
  std::vector<korvane_svcmgr_ai_state_e> model_states;
  std::vector<Answer> answers;
  /** What the application does inside its next callback. */
  std::function<void()> reaction;

  /** Does what the application wants done in this callback. */
  void react() {
    const auto taken = std::exchange(reaction, nullptr);
    if (taken) taken();
  }

 private:
  /** The test that is the user data of a callback. */
  static LibraryTest &of(void *test) { return *static_cast<LibraryTest *>(test); }

  std::filesystem::path directory_;
};

/** One of each public handle. */
struct Handles {
  Handles() {
    agents.add("agent.one");
    info.set_id("m1");
    info.set_version("1.0");
    info.set_title("Title");
    info.set_description("Description");
    models.add(info);
  }

  AgentList agents;  ///< "agent.one"
  ModelInfo info;    ///< "m1", "1.0", "Title", "Description"
  ModelList models;  ///< a copy of info
  Progress progress;
};

/** Valid arguments for any exported function. */
class Arguments {
 public:
  ~Arguments() {
    std::free(std::get<char *>(outputs));
    release_output(korvane_svcmgr_agent_list_destroy);
    release_output(korvane_svcmgr_ai_model_info_destroy);
    release_output(korvane_svcmgr_ai_model_list_destroy);
    release_output(korvane_svcmgr_ai_progress_destroy);
  }

  /** The next argument of a function; null if it is the chosen pointer. */
  template <typename Parameter>
  Parameter next() {
    if constexpr (kIsRequired<Parameter>) {
      return position++ == null_pointer ? nullptr : valid(Parameter());
    } else {
      return Parameter();
    }
  }
  /** Expects that calls have stored nothing. */
  void expect_unchanged() const {
    EXPECT_TRUE(outputs == before);
    EXPECT_EQ(1, handles.agents.size());
    EXPECT_EQ("m1|1.0|Title|Description", describe(handles.info));
    EXPECT_EQ("[m1|1.0|Title|Description]", describe(handles.models));
  }

  /** Whether a parameter is a pointer that must not be null. */
  template <typename Parameter>
  static constexpr bool kIsRequired =
      !std::is_same_v<Parameter, int> && !std::is_same_v<Parameter, void *>;
  static constexpr const char *kText = "a text that is too long for a short string";

  int position = 0;
  int null_pointer = -1;  ///< counted from 0 among those that must not be null
  Handles handles;

 private:
  using Values =
      std::tuple<int, bool, char *, korvane_svcmgr_agent_list_h, korvane_svcmgr_ai_model_info_h,
                 korvane_svcmgr_ai_model_list_h, korvane_svcmgr_ai_progress_h>;

  template <typename... Parameters>
  static auto valid(void (*)(Parameters...)) -> void (*)(Parameters...) {
    return [](Parameters...) {};
  }
  static const char *valid(const char *) { return kText; }
  template <typename Target>
  Target *valid(Target *) {
    if constexpr (std::is_class_v<Target>) {
      return std::get<Target *>(before);  // a handle
    } else {
      return &std::get<Target>(outputs);
    }
  }
  /** Releases what a call has stored. */
  template <typename Value>
  void release_output(int (*release)(Value)) {
    if (std::get<Value>(outputs) != std::get<Value>(before)) release(std::get<Value>(outputs));
  }

  const Values before = Values(-77, true, nullptr, handles.agents.get(), handles.info.get(),
                               handles.models.get(), handles.progress.get());
  Values outputs = before;
};

/** What an exported function needs. */
enum Need : unsigned { kConnection = 1, kLevel8 = 2, kLevel11 = 4 };

/** An exported function of any type. */
struct ApiFunction {
  template <typename... Parameters>
  ApiFunction(int (*function)(Parameters...))
      : pointers((0 + ... + Arguments::kIsRequired<Parameters>)), call([=](Arguments &arguments) {
          arguments.position = 0;
          return std::apply(function, std::tuple<Parameters...>{arguments.next<Parameters>()...});
        }) {}

  int pointers;  ///< that must not be null
  std::function<int(Arguments &)> call;
};

/** An exported function, its needs and its log. */
struct ApiCall : ApiFunction {
  std::string name;
  std::string entry;      ///< the line that it logs first
  std::string null_line;  ///< the line about a null pointer
  unsigned needs;
};
extern const std::vector<ApiCall> kApiCalls;

#endif  // KORVANE_TESTS_UNIT_LIBRARY_TEST_H_
