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
#include <vector>

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

/** One application, whose callbacks record what they receive. Leaves the library idle. */
class LibraryTest : public ::testing::Test {
 protected:
  LibraryTest() { platform.reset(); }
  ~LibraryTest() override;
  void TearDown() override;

  int start_connecting() { return korvane_svcmgr_connect(on_connection, this); }
  /** Connects, and forgets what was recorded on the way. */
  void connect();
  static bool is_connected();

  // What the service manager does.
  static void announce_update();
  static void announce_launch();
  static void lose_connection() { platform.report_disconnected(); }
  static void start_update();
  static void complete_update();
  /** Answers the last request with a kind of delegate. */
  static void answer_delegate(int kind, const Parcel &payload);

  /** Expects lines in the log, among others. */
  static void expect_logged(const Texts &lines);

  /** A folder of the test's own. */
  std::filesystem::path directory();

  // Each takes the test as user data.
  static void on_connection(int result, korvane_svcmgr_connection_state_e state, void *test);
  static void on_update_status(korvane_svcmgr_update_status_e status, void *test);
  static void on_model_status(int result, korvane_svcmgr_ai_state_e state, void *test);
  static void on_models(int result, korvane_svcmgr_ai_model_list_h list, void *test);
  static void on_progress(int result, korvane_svcmgr_ai_progress_h progress, void *test);
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

 private:
  void react();

  std::filesystem::path directory_;
};

/** One of each public handle. */
struct Handles {
  Handles();

  AgentList agents;  ///< "agent.one"
  ModelInfo info;    ///< "m1", "1.0", "Title", "Description"
  ModelList models;  ///< a copy of info
  Progress progress;
};

/** Arguments for any exported function: handles and others, of which all or none are given. */
class Arguments {
 public:
  explicit Arguments(bool handles_given = true, bool others_given = true)
      : handles_given_(handles_given), others_given_(others_given) {}
  ~Arguments();

  auto agents() const { return handles_given_ ? handles.agents.get() : nullptr; }
  auto info() const { return handles_given_ ? handles.info.get() : nullptr; }
  auto models() const { return handles_given_ ? handles.models.get() : nullptr; }
  auto progress() const { return handles_given_ ? handles.progress.get() : nullptr; }

  /** A callback of any type, which does nothing. */
  struct Callback {
    template <typename... Parameters>
    using Function = void (*)(Parameters...);
    template <typename... Parameters>
    operator Function<Parameters...>() const {
      return given ? [](Parameters...) {} : Function<Parameters...>();
    }
    bool given;
  };
  Callback callback() const { return {others_given_}; }
  const char *text() const { return others_given_ ? "too long for a short string" : nullptr; }
  template <typename Output>
  Output *out(Output &output) const {
    return others_given_ ? &output : nullptr;
  }
  bool outputs_untouched() const;

  Handles handles;
  static constexpr int kNoNumber = -77;
  int number_out = kNoNumber;
  bool truth_out = true;
  char *text_out = unset<char *>();
  korvane_svcmgr_agent_list_h agents_out = unset<korvane_svcmgr_agent_list_h>();
  korvane_svcmgr_ai_model_info_h info_out = unset<korvane_svcmgr_ai_model_info_h>();
  korvane_svcmgr_ai_model_list_h models_out = unset<korvane_svcmgr_ai_model_list_h>();
  korvane_svcmgr_ai_progress_h progress_out = unset<korvane_svcmgr_ai_progress_h>();

 private:
  /** A pointer that is neither null nor made by the library. */
  template <typename Pointer>
  static Pointer unset() {
    static char place;
    return reinterpret_cast<Pointer>(&place);
  }
  bool handles_given_, others_given_;
};

/** What an exported function takes and needs. */
enum ApiTrait : unsigned {
  kTakesHandle = 1,
  kTakesOther = 2,
  kNeedsVersion17 = 4,  ///< of the service manager
  kNeedsVersion23 = 8,
};

/** An exported function, called with valid arguments. */
struct ApiCall {
  bool has(ApiTrait trait) const { return (traits & trait) != 0; }

  std::string name;
  std::string entry;         ///< the line that it logs first
  std::string null_message;  ///< about a missing pointer
  unsigned traits;
  int (*call)(Arguments &arguments);
};
extern const std::vector<ApiCall> kApiCalls;

/** The four texts of a model, with "|" between them; "unset" for those without a value. */
std::string describe(const ModelInfo &info);
/** Each entry in brackets; "none" without a list. */
std::string describe(const ModelList &list);
std::string describe(const Progress &progress);

#endif  // KORVANE_TESTS_UNIT_LIBRARY_TEST_H_
