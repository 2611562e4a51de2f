#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include "AgentStatusEventHandler.h"
#include "ModelUpdateEventHandler.h"
#include "OrvelEventHandler.h"
#include "UpdateObserver.h"
#include "UpdateStatusEventHandler.h"
#include "library_test.h"

namespace {

constexpr auto kStarted = SVCMGR_UPDATE_STATUS_STARTED;
constexpr auto kCompleted = SVCMGR_UPDATE_STATUS_COMPLETED;
constexpr auto kFailed = SVCMGR_UPDATE_STATUS_FAILED_OTHER;
constexpr auto kFailed7 = SVCMGR_UPDATE_STATUS_FAILED_CODE_7;

const std::string kOwnId = "org.example.app";

Bytes bytes_of(std::int32_t code) {
  Bytes bytes(sizeof(code));
  std::memcpy(bytes.data(), &code, sizeof(code));
  return bytes;
}

/** An application that receives the statuses of updates and of models. */
class StatusTest : public LibraryTest {
 protected:
  StatusTest() { listen(); }
  void listen() {
    EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_set_update_status_cb(on_update_status, this));
    EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_ai_register_status_cb(on_model_status, this));
  }
  static void start_both() {
    start_update();
    platform.emit(".model_status", {{"START", "x"}});
  }
  void expect_both_reported() {
    EXPECT_THAT(update_statuses, ElementsAre(kStarted));
    EXPECT_THAT(model_states, ElementsAre(SVCMGR_AI_STATE_START));
  }
  void expect_nothing_reported() {
    EXPECT_THAT(update_statuses, IsEmpty());
    EXPECT_THAT(model_states, IsEmpty());
  }
};

TEST_F(StatusTest, ASecondCallbackReplacesTheFirstAndItsUserData) {
  korvane_svcmgr_set_update_status_cb(ignore_update_status, nullptr);
  korvane_svcmgr_ai_register_status_cb(ignore_model_status, nullptr);
  start_both();
  expect_nothing_reported();
  EXPECT_EQ(2U, platform.subscriptions.size());
}

TEST_F(StatusTest, ANullCallbackLeavesTheRegisteredOne) {
  EXPECT_EQ(SVCMGR_ERROR_INVALID_PARAMETER, korvane_svcmgr_set_update_status_cb(nullptr, nullptr));
  EXPECT_EQ(SVCMGR_ERROR_INVALID_PARAMETER, korvane_svcmgr_ai_register_status_cb(nullptr, nullptr));
  start_both();
  expect_both_reported();
}

TEST_F(StatusTest, ARefusedSubscriptionIsLoggedAndTriedAgain) {
  LibraryTest::TearDown();
  platform.failures["event_add_event_handler"] = -EIO;
  listen();
  EXPECT_THAT(platform.log, Contains("E SetEventCallback: Failed to register event").Times(2));
  expect_logged(
      {"E RegisterEvent: err: [-5 (the platform's text)] - "
       "[event." SVCMGR_APP_ID ".update_status]"});
  platform.repair();
  listen();
  start_both();
  expect_both_reported();
}

TEST_F(StatusTest, ARemovedCallbackIsNotCalledEvenIfThePlatformRefusesTheRemoval) {
  platform.failures["event_remove_event_handler"] = -EIO;
  EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_unset_update_status_cb());
  EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, korvane_svcmgr_ai_deregister_status_cb());
  expect_logged({"E UnsetEventCallback: Failed to deregister event",
                 "E korvane_svcmgr_ai_deregister_status_cb: UnsetEventCallback Error"});
  EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_ai_deregister_status_cb()) << "nothing is left";
  start_both();
  expect_nothing_reported();
  expect_logged({"I ModelEventCallback: There is no registered callback"});
  EXPECT_TRUE(UpdateObserver().IsBeingUpdated()) << "the state is still followed";
  complete_update();
  EXPECT_TRUE(UpdateObserver().IsIdle());
}

TEST_F(StatusTest, AnEventOfAnotherNameIsIgnored) {
  bundle_s event = {{"START", "x"}, {"Start", Texts{}}, {"Update", "x"}};
  for (const char *name : {"event.other", static_cast<const char *>(nullptr)}) {
    ModelUpdateEventHandler::ModelEventCallback(name, &event, nullptr);
    UpdateStatusEventHandler::UpdateEventCallback(name, &event, nullptr);
    AgentStatusEventHandler::AgentEventCallback(name, &event, nullptr);
  }
  expect_nothing_reported();
  EXPECT_TRUE(UpdateObserver().IsIdle());
  expect_logged({"E ModelEventCallback: Received Unknown Event"});
}

class UpdateStatusTest : public StatusTest {
 protected:
  /** The status that a requested update ends with. */
  korvane_svcmgr_update_status_e end_of_update(const bundle_s &event) {
    UpdateObserver().RequestUpdate();
    platform.emit(".update_status", event);
    return update_statuses.back();
  }
  static bool is_being_updated() {
    bool answer = false;
    EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_is_being_updated(&answer));
    return answer;
  }
};

TEST_F(UpdateStatusTest, EachStartAndOneEndOfAnUpdateAreReported) {
  complete_update();
  start_update();
  start_update();
  complete_update();
  complete_update();
  EXPECT_THAT(update_statuses, ElementsAre(kStarted, kStarted, kCompleted));
}

TEST_F(UpdateStatusTest, AnUpdateIsUnderWayFromItsStartToItsEnd) {
  connect();
  EXPECT_FALSE(is_being_updated());
  reaction = [] { EXPECT_TRUE(is_being_updated()); };
  start_update();
  EXPECT_TRUE(is_being_updated());
  reaction = [] { EXPECT_TRUE(is_being_updated()); };
  complete_update();
  EXPECT_FALSE(is_being_updated());
  EXPECT_EQ(nullptr, reaction);
  start_update();
  UpdateObserver().RequestUpdate();
  EXPECT_FALSE(is_being_updated()) << "another one is only requested";
}

TEST_F(UpdateStatusTest, AnUpdateOutlivesConnectionAndCallback) {
  connect();
  start_update();
  korvane_svcmgr_unset_update_status_cb();
  korvane_svcmgr_disconnect();
  EXPECT_EQ(1U, platform.subscriptions.size()) << "that for models";
  connect();
  EXPECT_TRUE(is_being_updated());
}

TEST_F(UpdateStatusTest, ResultsAndFailuresAreTranslated) {
  const std::pair<std::int32_t, korvane_svcmgr_update_status_e> statuses[] = {
      {1, SVCMGR_UPDATE_STATUS_FAILED_CODE_1},
      {3, SVCMGR_UPDATE_STATUS_FAILED_CODE_3},
      {7, kFailed7},
      {10, SVCMGR_UPDATE_STATUS_FAILED_CODE_10},
      {13, SVCMGR_UPDATE_STATUS_FAILED_CODE_13},
      {2, kFailed},
      {-1, kFailed},
      {1 << 24, kFailed}};
  for (const auto &[code, status] : statuses) {
    EXPECT_EQ(status, end_of_update({{kOwnId, bytes_of(code)}}));
    EXPECT_EQ(status, end_of_update({{"Fail", bytes_of(code)}}));
  }
  EXPECT_EQ(kCompleted, end_of_update({{kOwnId, bytes_of(0)}}));
  EXPECT_EQ(kFailed, end_of_update({{"Fail", bytes_of(0)}}));
  EXPECT_EQ(kCompleted, end_of_update({{kOwnId, Bytes{0, 0, 0, 0, 9}}})) << "four bytes count";
  EXPECT_EQ(kFailed, end_of_update({{kOwnId, Bytes{0, 0, 0}}})) << "too few bytes";
  expect_logged({"D UpdateEventCallback: update failed"});
}

TEST_F(UpdateStatusTest, KeysCountInTheirOrder) {
  bundle_s event = {
      {"Start", Texts{"a"}}, {kOwnId, bytes_of(7)}, {"Complete", "x"}, {"Fail", bytes_of(1)}};
  EXPECT_EQ(kStarted, end_of_update(event));
  event.erase("Start");
  EXPECT_EQ(kFailed7, end_of_update(event));
  event.erase(kOwnId);
  EXPECT_EQ(kCompleted, end_of_update(event));
}

TEST_F(UpdateStatusTest, AnApplicationWithoutIdReceivesTheEnd) {
  platform.app_id = "";
  EXPECT_EQ(kCompleted, end_of_update({{"", bytes_of(7)}, {"Complete", "x"}}));
  expect_logged({"E UpdateEventCallback: Failed to get app ID."});
}

TEST_F(UpdateStatusTest, AnExceptionOfTheApplicationIsLogged) {
  reaction = [] { throw "an exception of the application"; };
  start_update();
  expect_logged({"E UpdateEventCallback: Event was not handled: unknown exception"});
}

class ModelStatusTest : public StatusTest {
 protected:
  static void report(const bundle_s &event) { platform.emit(".model_status", event); }
};

TEST_F(ModelStatusTest, TheFirstStateOfAnEventIsReportedAndLogged) {
  report({{"START", "x"}, {"COMPLETED", "x"}});
  report({{"COMPLETED", "x"}, {"FAILED", "x"}});
  report({{"FAILED", "x"}});
  EXPECT_THAT(model_states, ElementsAre(SVCMGR_AI_STATE_START, SVCMGR_AI_STATE_COMPLETED,
                                        SVCMGR_AI_STATE_FAILED));
  expect_logged({"I ModelEventCallback: Received UPDATE EVENT : FAILED"});
}

TEST_F(ModelStatusTest, AnEventWithoutAKnownTextOrPayloadIsOnlyLogged) {
  report({{"Start", "x"}, {"START", Bytes{1}}});
  ModelUpdateEventHandler::ModelEventCallback("event.other", nullptr, nullptr);
  EXPECT_THAT(model_states, IsEmpty());
  expect_logged({"E ModelEventCallback: Received Unknown State",
                 "E ModelEventCallback: EVENT CALLBACK : INVALID PARAMETER"});
}

struct Slow : Singleton<Slow> {
  // Long enough for another thread to begin a second object, if it may.
  Slow() {
    ++made;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  static inline std::atomic<int> made{0};
};

TEST(SingletonTest, TwoThreadsMakeOneObject) {
  std::thread other(&Slow::GetInstance);
  Slow::GetInstance();
  other.join();
  EXPECT_EQ(1, Slow::made);
}

}  // namespace
