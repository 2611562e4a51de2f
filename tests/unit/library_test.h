/** What the tests of the library share: the application's side of it. */
#ifndef KORVANE_TESTS_UNIT_LIBRARY_TEST_H_
#define KORVANE_TESTS_UNIT_LIBRARY_TEST_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "korvane_svcmgr.hpp"
#include "scripted_platform.h"

using korvane::svcmgr::AgentList;
using korvane::svcmgr::ModelInfo;
using korvane::svcmgr::ModelList;
using korvane::svcmgr::Progress;

/** A callback of any type that does nothing, or a null one. */
struct Callback {
  template <typename... Arguments>
  using Function = void (*)(Arguments...);
  template <typename... Arguments>
  operator Function<Arguments...>() const {
    return given ? [](Arguments...) {} : Function<Arguments...>();
  }
  bool given = true;
};

/** One application: its callbacks record what they hear as texts. Leaves the library idle. */
class LibraryTest : public ::testing::Test {
 protected:
  LibraryTest() { platform.reset(); }
  ~LibraryTest() override;
  void TearDown() override;

  int start_connecting() { return korvane_svcmgr_connect(on_connection, this); }
  /** Connects, and forgets what was recorded on the way. */
  void connect();
  /** Answers the last request of a kind that was sent. */
  void answer(int kind, const Parcel &payload);
  /** A folder of the test's own. */
  std::filesystem::path directory();

  // Each takes the test as user data, records, and then does what reaction says, once.
  static void on_connection(int result, korvane_svcmgr_connection_state_e state, void *test);
  static void on_update_status(korvane_svcmgr_update_status_e status, void *test);
  static void on_model_status(int result, korvane_svcmgr_ai_state_e state, void *test);
  static void on_models(int result, korvane_svcmgr_ai_model_list_h list, void *test);
  static void on_progress(int result, korvane_svcmgr_ai_progress_h progress, void *test);
  static void hear(void *test, std::string text, std::initializer_list<int> values = {});

  Texts heard;
  std::function<void()> reaction;

 private:
  std::filesystem::path directory_;
};

/** One of each public handle, or null pointers. */
struct Handles {
  Handles();
  explicit Handles(std::nullptr_t none) : agents(none), info(none), models(none), progress(none) {}
  /** Appends a model with those texts that are not null to models. */
  void add_model(const std::vector<const char *> &texts);

  AgentList agents;  ///< "agent.one"
  ModelInfo info;    ///< "m1", "1.0", "Title", "Description"
  ModelList models;  ///< a copy of info
  Progress progress;
};

/** The other arguments of calls, and what came out; or null pointers. */
struct Others {
  explicit Others(bool all_given = true) : callback{all_given} {}
  ~Others();
  template <typename Value>
  Value *to(Value &value) const {
    return callback.given ? &value : nullptr;
  }
  /** Whether no call has put a pointer here; then it is not null either. */
  template <typename Pointer>
  static bool is_unset(Pointer pointer) {
    return pointer == unset<Pointer>();
  }
  bool untouched() const;

  Callback callback;
  const char *text_in = callback.given ? "a text that does not fit into a short string" : nullptr;
  int number = -77;
  bool truth = false;
  char *text = unset<char *>();
  korvane_svcmgr_agent_list_h agents = unset<korvane_svcmgr_agent_list_h>();
  korvane_svcmgr_ai_model_info_h info = unset<korvane_svcmgr_ai_model_info_h>();
  korvane_svcmgr_ai_model_list_h models = unset<korvane_svcmgr_ai_model_list_h>();
  korvane_svcmgr_ai_progress_h progress = unset<korvane_svcmgr_ai_progress_h>();

 private:
  template <typename Pointer>
  static Pointer unset() {
    static char place;
    return reinterpret_cast<Pointer>(&place);
  }
};

/** An exported function, called with valid arguments. */
struct ApiCall {
  /** What it logs first. */
  std::string entry_line() const { return level + name + ": " + message + "|"; }
  /** Whether one of the Handles, or of the Others, is among the arguments. */
  bool takes_handle() const { return arguments.find("in.") + 1 > 0; }
  bool takes_other() const { return arguments.find("out.") + 1 > 0; }

  std::string name;
  std::string level, message;  ///< of its entry log line
  std::string null_text;       ///< the message about a missing pointer
  std::string arguments;       ///< as they are written
  int (*call)(Handles &in, Others &out);
};
extern const std::vector<ApiCall> kApiCalls;
const ApiCall &find_call(const std::string &name);

/** What the platform's log holds since the last look; what the application has heard. */
#define EXPECT_LOG(expected) EXPECT_EQ(std::string(expected), platform.take_log())
#define EXPECT_LOG_HAS(part) EXPECT_THAT(platform.take_log(), ::testing::HasSubstr(part))
#define EXPECT_HEARD(...) EXPECT_EQ((Texts{__VA_ARGS__}), std::exchange(heard, {}))

/** The four texts of a model, with "|" between them; "unset" for those without a value. */
std::string describe(const ModelInfo &info);
/** The number of entries of a list, and each entry in brackets. */
std::string describe(const ModelList &list);

#endif  // KORVANE_TESTS_UNIT_LIBRARY_TEST_H_
