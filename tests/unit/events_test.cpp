#include <cstring>
#include <tuple>

#include "ModelUpdateEventHandler.h"
#include "UpdateObserver.h"
#include "UpdateStatusEventHandler.h"
#include "library_test.h"

namespace {

const std::string kUpdate = ".update_status";
const std::string kModel = ".model_status";
const std::string kOwn = "org.example.app";

/** The bytes of a code, and one more. */
Bytes bytes_of(std::int32_t code) {
  Bytes bytes(sizeof(code) + 1);
  std::memcpy(bytes.data(), &code, sizeof(code));
  return bytes;
}

class EventsTest : public LibraryTest {
 protected:
  void listen() { EXPECT_EQ(0, korvane_svcmgr_set_update_status_cb(on_update_status, this)); }
  /** Delivers an update event after a request or while idle; gives what the application hears. */
  std::string update_event(const bundle_s &data, bool requested = true) {
    heard = {"nothing"};
    requested ? UpdateObserver().RequestUpdate() : UpdateObserver().FinishUpdate();
    platform.emit(kUpdate, data);
    return heard.back();
  }
};

TEST_F(EventsTest, CodesOfAnUpdate) {
  listen();
  // A code, and the status when it is the application's own result and when it is a failure.
  const std::tuple<bundle_s::mapped_type, int, int> rows[] = {
      {bytes_of(1), 2, 2},       {bytes_of(3), 3, 3},    {bytes_of(7), 4, 4},
      {bytes_of(10), 5, 5},      {bytes_of(13), 7, 7},   {bytes_of(256), 6, 6},
      {bytes_of(1 << 24), 6, 6}, {Bytes{0, 0, 0}, 6, 6}, {Bytes{0, 0, 0, 0}, 1, 6},
      {nullptr, 6, 6},           {Bytes{}, 6, 6}};
  for (const auto &[code, own, failure] : rows) {
    EXPECT_EQ("update " + std::to_string(own), update_event({{kOwn, code}}));
    EXPECT_EQ("update " + std::to_string(failure), update_event({{"Fail", code}}));
  }
}

TEST_F(EventsTest, TheFirstKeyOfAnUpdateDecides) {
  listen();
  const bundle_s start = {{"Start", Texts{"a"}}, {kOwn, bytes_of(7)}, {"Complete", "x"}};
  const std::tuple<bundle_s, std::string, std::string> rows[] = {
      {start, "update 0", "update 0"},
      {bundle_s{{kOwn, bytes_of(7)}, {"Complete", "x"}, {"Fail", bytes_of(1)}}, "update 4",
       "nothing"},
      {bundle_s{{"Complete", "x"}, {"Fail", bytes_of(1)}}, "update 1", "nothing"},
      {bundle_s{{"Fail", bytes_of(1)}, {"Complete", Texts{}}}, "update 2", "nothing"},
      {bundle_s{{"Start", "x"}, {kOwn, "x"}, {"Fail", "1"}}, "nothing", "nothing"}};
  for (const auto &[data, when_requested, when_idle] : rows) {
    EXPECT_EQ(when_idle, update_event(data, false));
    EXPECT_EQ(when_requested, update_event(data));
    EXPECT_EQ(when_requested == "update 0", UpdateObserver().IsBeingUpdated());
    EXPECT_EQ(when_requested != when_idle, UpdateObserver().IsIdle());
  }
  reaction = [] { throw "an exception of the application"; };
  platform.emit(kUpdate, start);
  EXPECT_LOG_HAS("|E UpdateEventCallback: Event was not handled: unknown exception|");
  platform.app_id = "";
  EXPECT_EQ("update 1", update_event({{"", bytes_of(0)}, {"Complete", "x"}}));
  EXPECT_LOG_HAS("Failed to get app ID.|D UpdateEventCallback: update completed|");
  platform.emit(kUpdate, start, "event.other");
  UpdateStatusEventHandler::UpdateEventCallback(nullptr, nullptr, nullptr);
  EXPECT_HEARD("nothing", "update 1");
}

TEST_F(EventsTest, AnUpdateLastsUntilItsEndIsTold) {
  connect();
  bool updating = true;
  const auto look = [&] { korvane_svcmgr_is_being_updated(&updating); };
  listen();
  look();
  EXPECT_FALSE(updating);
  reaction = look;
  platform.emit(kUpdate, {{"Start", Texts{}}});
  EXPECT_TRUE(updating) << "inside its start";
  korvane_svcmgr_unset_update_status_cb();
  listen();
  updating = false;
  reaction = [&] {
    look();
    korvane_svcmgr_unset_update_status_cb();
  };
  platform.emit(kUpdate, {{"Complete", "x"}});
  EXPECT_TRUE(updating) << "inside its end, and whatever callback was set or unset before";
  look();
  EXPECT_FALSE(updating);
  EXPECT_HEARD("update 0", "update 1");
  korvane_svcmgr_disconnect();
  updating = true;
  EXPECT_EQ(SVCMGR_ERROR_NOT_CONNECTED, korvane_svcmgr_is_being_updated(&updating));
  EXPECT_TRUE(updating) << "not written";
}

TEST_F(EventsTest, RegistrationForUpdates) {
  const bundle_s start = {{"Start", Texts{}}};
  platform.failures["event_add_event_handler"] = -9;
  EXPECT_EQ(0, korvane_svcmgr_set_update_status_cb(Callback(), &platform));
  EXPECT_LOG_HAS("E RegisterEvent: err: [-9 (the platform's text)] - [event." SVCMGR_APP_ID
                 ".update_status]|E SetEventCallback: Failed to register event|");
  platform.repair();
  for (int time = 0; time < 2; ++time) listen();
  EXPECT_EQ("update 0", update_event(start)) << "callback and user data were replaced";
  EXPECT_EQ(2, platform.calls["event_add_event_handler"]) << "one refused, one made";
  platform.failures["event_remove_event_handler"] = -8;
  for (int i = 0; i < 2; ++i) EXPECT_EQ(0, korvane_svcmgr_unset_update_status_cb());
  EXPECT_EQ(1, platform.calls["event_remove_event_handler"]) << "not tried again";
  EXPECT_EQ("nothing", update_event(start));
  EXPECT_TRUE(UpdateObserver().IsBeingUpdated()) << "known without a callback, too";
  platform.emit(kUpdate, {{"Complete", "x"}});
  EXPECT_TRUE(UpdateObserver().IsIdle());
}

TEST_F(EventsTest, ModelStatus) {
  korvane_svcmgr_ai_register_status_cb(Callback(), &platform);
  EXPECT_EQ(0, korvane_svcmgr_ai_register_status_cb(on_model_status, this));
  bundle_s start = {{"START", "x"}, {"COMPLETED", "x"}};
  const std::pair<bundle_s, std::string> rows[] = {
      {start, "UPDATE EVENT : START"},
      {{{"COMPLETED", "x"}, {"FAILED", "x"}}, "UPDATE EVENT : COMPLETED"},
      {{{"FAILED", "x"}, {"START", Bytes{1}}}, "UPDATE EVENT : FAILED"},
      {{{"Start", "x"}}, "Unknown State"}};
  for (const auto &[data, received] : rows) {
    platform.emit(kModel, data);
    EXPECT_LOG_HAS(" ModelEventCallback: Received " + received + "|");
  }
  EXPECT_HEARD("model 0 17", "model 0 20", "model 0 24");
  platform.emit(kModel, start, "event.other");
  EXPECT_LOG_HAS("Received Unknown Event|");
  ModelUpdateEventHandler::ModelEventCallback(nullptr, &start, nullptr);
  ModelUpdateEventHandler::ModelEventCallback("event." SVCMGR_APP_ID ".model_status", nullptr,
                                              nullptr);
  EXPECT_LOG_HAS("INVALID PARAMETER|D ModelEventCallback: Model Event Callback is invoked|E ");
  korvane_svcmgr_ai_register_status_cb(Callback(), nullptr);
  platform.emit(kModel, start);
  korvane_svcmgr_ai_register_status_cb(on_model_status, this);
  platform.failures["event_remove_event_handler"] = -8;
  EXPECT_EQ(-38, korvane_svcmgr_ai_deregister_status_cb());
  platform.emit(kModel, start);
  platform.take_log();
  platform.emit(kModel, start, "event.other");
  EXPECT_LOG_HAS("There is no registered callback|");
  EXPECT_EQ(0, korvane_svcmgr_ai_deregister_status_cb());
  EXPECT_HEARD();
}

}  // namespace
