#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include "ModelUpdateEventHandler.h"
#include "OrvelEventHandler.h"
#include "UpdateObserver.h"
#include "UpdateStatusEventHandler.h"
#include "library_test.h"

namespace {

constexpr auto kStarted = SVCMGR_UPDATE_STATUS_STARTED;
constexpr auto kCompleted = SVCMGR_UPDATE_STATUS_COMPLETED;
constexpr auto kFailed = SVCMGR_UPDATE_STATUS_FAILED_OTHER;

const std::string kUpdateStatus = ".update_status";
const std::string kModelStatus = ".model_status";
const std::string kOwnId = "org.example.app";

Bytes bytes_of(std::int32_t code) {
  Bytes bytes(sizeof(code));
  std::memcpy(bytes.data(), &code, sizeof(code));
  return bytes;
}

class UpdateStatusTest : public LibraryTest {
 protected:
  UpdateStatusTest() { listen(); }
  void listen() {
    EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_set_update_status_cb(on_update_status, this));
  }
  static void report(const bundle_s &event) { platform.emit(kUpdateStatus, event); }
  /** The status that a requested update ends with. */
  korvane_svcmgr_update_status_e end_of_update(const bundle_s &event) {
    UpdateObserver().RequestUpdate();
    report(event);
    return update_statuses.back();
  }
  auto status_of_result(std::int32_t code) { return end_of_update({{kOwnId, bytes_of(code)}}); }
  auto status_of_failure(std::int32_t code) { return end_of_update({{"Fail", bytes_of(code)}}); }
  static bool is_being_updated() {
    bool answer = false;
    EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_is_being_updated(&answer));
    return answer;
  }
};

TEST_F(UpdateStatusTest, AStartIsReportedInAnyState) {
  start_update();
  start_update();
  EXPECT_THAT(update_statuses, ElementsAre(kStarted, kStarted));
}

TEST_F(UpdateStatusTest, AnEndIsReportedOnce) {
  UpdateObserver().RequestUpdate();
  complete_update();
  complete_update();
  EXPECT_THAT(update_statuses, ElementsAre(kCompleted));
}

TEST_F(UpdateStatusTest, AnEndWithoutAKnownUpdateIsNotReported) {
  complete_update();
  report({{kOwnId, bytes_of(0)}});
  report({{"Fail", bytes_of(1)}});
  EXPECT_THAT(update_statuses, IsEmpty());
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
}

TEST_F(UpdateStatusTest, ARequestedUpdateIsNotUnderWay) {
  connect();
  UpdateObserver().RequestUpdate();
  EXPECT_FALSE(is_being_updated());
}

TEST_F(UpdateStatusTest, AnUpdateOutlivesTheConnection) {
  connect();
  start_update();
  listen();
  korvane_svcmgr_disconnect();
  connect();
  EXPECT_TRUE(is_being_updated());
}

TEST_F(UpdateStatusTest, OwnResultsAreTranslated) {
  EXPECT_EQ(kCompleted, status_of_result(0));
  EXPECT_EQ(SVCMGR_UPDATE_STATUS_FAILED_CODE_1, status_of_result(1));
  EXPECT_EQ(SVCMGR_UPDATE_STATUS_FAILED_CODE_3, status_of_result(3));
  EXPECT_EQ(SVCMGR_UPDATE_STATUS_FAILED_CODE_7, status_of_result(7));
  EXPECT_EQ(SVCMGR_UPDATE_STATUS_FAILED_CODE_10, status_of_result(10));
  EXPECT_EQ(SVCMGR_UPDATE_STATUS_FAILED_CODE_13, status_of_result(13));
  for (const std::int32_t code : {2, -1, 256, 1 << 24}) EXPECT_EQ(kFailed, status_of_result(code));
}

TEST_F(UpdateStatusTest, FailuresAreTranslatedAsResultsAreButForZero) {
  for (const std::int32_t code : {1, 2, 3, 7, 10, 13})
    EXPECT_EQ(status_of_result(code), status_of_failure(code));
  EXPECT_EQ(kFailed, status_of_failure(0));
}

TEST_F(UpdateStatusTest, AResultMayHaveMoreBytesThanItsCode) {
  EXPECT_EQ(kCompleted, end_of_update({{kOwnId, Bytes{0, 0, 0, 0, 9}}}));
}

TEST_F(UpdateStatusTest, AResultWithTooFewBytesIsAFailure) {
  EXPECT_EQ(kFailed, end_of_update({{kOwnId, Bytes{0, 0, 0}}}));
  EXPECT_EQ(kFailed, end_of_update({{kOwnId, Bytes{}}}));
  EXPECT_EQ(kFailed, end_of_update({{kOwnId, nullptr}}));
}

TEST_F(UpdateStatusTest, AStartCountsBeforeAllOtherKeys) {
  UpdateObserver().RequestUpdate();
  report({{"Start", Texts{"a"}}, {kOwnId, bytes_of(0)}, {"Complete", "x"}, {"Fail", bytes_of(1)}});
  EXPECT_THAT(update_statuses, ElementsAre(kStarted));
  EXPECT_TRUE(UpdateObserver().IsBeingUpdated());
}

TEST_F(UpdateStatusTest, TheOwnResultCountsBeforeOtherEnds) {
  EXPECT_EQ(SVCMGR_UPDATE_STATUS_FAILED_CODE_7,
            end_of_update({{kOwnId, bytes_of(7)}, {"Complete", "x"}, {"Fail", bytes_of(1)}}));
}

TEST_F(UpdateStatusTest, ACompletionCountsBeforeAFailure) {
  EXPECT_EQ(kCompleted, end_of_update({{"Complete", "x"}, {"Fail", bytes_of(1)}}));
}

TEST_F(UpdateStatusTest, ValuesOfOtherTypesAreNotThere) {
  UpdateObserver().RequestUpdate();
  report({{"Start", "x"}, {kOwnId, "x"}, {"Complete", Texts{"x"}}, {"Fail", "x"}});
  EXPECT_THAT(update_statuses, IsEmpty());
  EXPECT_FALSE(UpdateObserver().IsIdle());
}

TEST_F(UpdateStatusTest, AnApplicationWithoutIdStillLearnsOfTheEnd) {
  platform.app_id = "";
  EXPECT_EQ(kCompleted, end_of_update({{"", bytes_of(7)}, {"Complete", "x"}}));
  expect_logged({"E UpdateEventCallback: Failed to get app ID."});
}

TEST_F(UpdateStatusTest, AnEventOfAnotherNameIsIgnored) {
  platform.emit(kUpdateStatus, {{"Start", Texts{}}}, "event.other");
  UpdateStatusEventHandler::UpdateEventCallback(nullptr, nullptr, nullptr);
  EXPECT_THAT(update_statuses, IsEmpty());
}

TEST_F(UpdateStatusTest, AnExceptionOfTheApplicationEndsUpInTheLog) {
  reaction = [] { throw "an exception of the application"; };
  start_update();
  expect_logged({"E UpdateEventCallback: Event was not handled: unknown exception"});
}

TEST_F(UpdateStatusTest, ASecondCallbackReplacesTheFirst) {
  korvane_svcmgr_set_update_status_cb(ignore_update_status, nullptr);
  start_update();
  EXPECT_THAT(update_statuses, IsEmpty());
  listen();
  start_update();
  EXPECT_THAT(update_statuses, ElementsAre(kStarted));
  EXPECT_EQ(1, platform.count("event_add_event_handler"));
}

TEST_F(UpdateStatusTest, ANullCallbackLeavesTheRegisteredOne) {
  EXPECT_EQ(SVCMGR_ERROR_INVALID_PARAMETER, korvane_svcmgr_set_update_status_cb(nullptr, nullptr));
  start_update();
  EXPECT_THAT(update_statuses, ElementsAre(kStarted));
}

TEST_F(UpdateStatusTest, ARefusedSubscriptionIsLoggedAndTriedAgainByTheNextSet) {
  korvane_svcmgr_unset_update_status_cb();
  platform.failures["event_add_event_handler"] = -EIO;
  listen();
  expect_logged(
      {"E RegisterEvent: err: [-5 (the platform's text)] - "
       "[event." SVCMGR_APP_ID ".update_status]",
       "E SetEventCallback: Failed to register event"});
  platform.repair();
  listen();
  start_update();
  EXPECT_THAT(update_statuses, ElementsAre(kStarted));
}

TEST_F(UpdateStatusTest, ARefusedRemovalIsNotTriedAgain) {
  platform.failures["event_remove_event_handler"] = -EIO;
  EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_unset_update_status_cb());
  EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_unset_update_status_cb());
  EXPECT_EQ(1, platform.count("event_remove_event_handler"));
}

TEST_F(UpdateStatusTest, WithoutACallbackTheStateIsStillFollowed) {
  platform.failures["event_remove_event_handler"] = -EIO;
  korvane_svcmgr_unset_update_status_cb();
  start_update();
  EXPECT_TRUE(UpdateObserver().IsBeingUpdated());
  complete_update();
  EXPECT_TRUE(UpdateObserver().IsIdle());
  EXPECT_THAT(update_statuses, IsEmpty());
}

TEST_F(UpdateStatusTest, UnsettingTheCallbackUnsubscribesAndKeepsTheState) {
  start_update();
  korvane_svcmgr_unset_update_status_cb();
  EXPECT_THAT(platform.subscriptions, IsEmpty());
  EXPECT_TRUE(UpdateObserver().IsBeingUpdated());
}

class ModelStatusTest : public LibraryTest {
 protected:
  void listen() {
    EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_ai_register_status_cb(on_model_status, this));
  }
  ModelStatusTest() { listen(); }
  static void report(const bundle_s &event) { platform.emit(kModelStatus, event); }
  /** Leaves a subscription without a callback. */
  void deregister_in_vain() {
    platform.failures["event_remove_event_handler"] = -EIO;
    EXPECT_EQ(SVCMGR_ERROR_INVALID_OPERATION, korvane_svcmgr_ai_deregister_status_cb());
  }
};

TEST_F(ModelStatusTest, EachStateIsReportedAndLogged) {
  report({{"START", "x"}});
  report({{"COMPLETED", "x"}});
  report({{"FAILED", "x"}});
  EXPECT_THAT(model_states, ElementsAre(SVCMGR_AI_STATE_START, SVCMGR_AI_STATE_COMPLETED,
                                        SVCMGR_AI_STATE_FAILED));
  expect_logged({"I ModelEventCallback: Received UPDATE EVENT : START",
                 "I ModelEventCallback: Received UPDATE EVENT : COMPLETED",
                 "I ModelEventCallback: Received UPDATE EVENT : FAILED"});
}

TEST_F(ModelStatusTest, AStartCountsBeforeAnEndAndACompletionBeforeAFailure) {
  report({{"START", "x"}, {"COMPLETED", "x"}});
  report({{"COMPLETED", "x"}, {"FAILED", "x"}});
  EXPECT_THAT(model_states, ElementsAre(SVCMGR_AI_STATE_START, SVCMGR_AI_STATE_COMPLETED));
}

TEST_F(ModelStatusTest, AnEventWithoutAKnownTextIsOnlyLogged) {
  report({{"Start", "x"}, {"START", Bytes{1}}});
  EXPECT_THAT(model_states, IsEmpty());
  expect_logged({"E ModelEventCallback: Received Unknown State"});
}

TEST_F(ModelStatusTest, AnEventOfAnotherNameIsOnlyLogged) {
  platform.emit(kModelStatus, {{"START", "x"}}, "event.other");
  EXPECT_THAT(model_states, IsEmpty());
  expect_logged({"E ModelEventCallback: Received Unknown Event"});
}

TEST_F(ModelStatusTest, AnEventWithoutNameOrPayloadIsOnlyLogged) {
  bundle_s event = {{"START", "x"}};
  ModelUpdateEventHandler::ModelEventCallback(nullptr, &event, nullptr);
  ModelUpdateEventHandler::ModelEventCallback("event.other", nullptr, nullptr);
  EXPECT_THAT(model_states, IsEmpty());
  EXPECT_THAT(platform.take_log(),
              Contains("E ModelEventCallback: EVENT CALLBACK : INVALID PARAMETER").Times(2));
}

TEST_F(ModelStatusTest, ASecondCallbackReplacesTheFirst) {
  korvane_svcmgr_ai_register_status_cb(ignore_model_status, nullptr);
  report({{"START", "x"}});
  EXPECT_THAT(model_states, IsEmpty());
  listen();
  report({{"START", "x"}});
  EXPECT_THAT(model_states, ElementsAre(SVCMGR_AI_STATE_START));
  EXPECT_EQ(1, platform.count("event_add_event_handler"));
}

TEST_F(ModelStatusTest, ANullCallbackLeavesTheRegisteredOne) {
  EXPECT_EQ(SVCMGR_ERROR_INVALID_PARAMETER, korvane_svcmgr_ai_register_status_cb(nullptr, nullptr));
  report({{"START", "x"}});
  EXPECT_THAT(model_states, ElementsAre(SVCMGR_AI_STATE_START));
}

TEST_F(ModelStatusTest, ARefusedSubscriptionIsTriedAgainByTheNextRegistration) {
  korvane_svcmgr_ai_deregister_status_cb();
  platform.failures["event_add_event_handler"] = -EIO;
  listen();
  expect_logged({"E SetEventCallback: Failed to register event"});
  platform.repair();
  listen();
  report({{"START", "x"}});
  EXPECT_THAT(model_states, ElementsAre(SVCMGR_AI_STATE_START));
}

TEST_F(ModelStatusTest, DeregisteringWithoutARegistrationSucceeds) {
  EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_ai_deregister_status_cb());
}

TEST_F(ModelStatusTest, ARefusedRemovalIsReportedAndCountsAsDone) {
  deregister_in_vain();
  expect_logged({"E korvane_svcmgr_ai_deregister_status_cb: UnsetEventCallback Error"});
  EXPECT_EQ(SVCMGR_ERROR_NONE, korvane_svcmgr_ai_deregister_status_cb());
}

TEST_F(ModelStatusTest, WithoutACallbackAnyEventIsLoggedAsSuch) {
  deregister_in_vain();
  report({{"START", "x"}});
  platform.take_log();
  platform.emit(kModelStatus, {{"START", "x"}}, "event.other");
  EXPECT_THAT(model_states, IsEmpty());
  expect_logged({"I ModelEventCallback: There is no registered callback"});
}

TEST_F(ModelStatusTest, AStatusIsReportedWithoutAConnection) {
  connect();
  korvane_svcmgr_disconnect();
  report({{"START", "x"}});
  EXPECT_THAT(model_states, ElementsAre(SVCMGR_AI_STATE_START));
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
