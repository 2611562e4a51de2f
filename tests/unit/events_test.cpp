#include <cstring>
#include <tuple>

#include "ModelUpdateEventHandler.h"
#include "UpdateObserver.h"
#include "library_test.h"

namespace {

const std::string kUpdate = ".update_status", kModel = ".model_status", kOwn = "org.example.app";

Bytes bytes_of(std::int32_t code) {
  Bytes bytes(sizeof(code) + 1);
  std::memcpy(bytes.data(), &code, sizeof(code));
  return bytes;
}

class EventsTest : public LibraryTest {
 protected:
  /** Delivers an update event; gives what the application hears of it. */
  std::string update_event(const bundle_s &data, bool idle = false) {
    heard = {"nothing"};
    idle ? UpdateObserver().FinishUpdate() : UpdateObserver().RequestUpdate();
    platform.emit(kUpdate, data);
    return heard.back();
  }
};

TEST_F(EventsTest, UpdateStatus) {
  korvane_svcmgr_set_update_status_cb(on_update_status, this);
  const int codes[] = {0, 1, 3, 7, 10, 13, 2, -1, 256, 1 << 24};
  for (std::size_t i = 0; i < std::size(codes); ++i) {
    const std::string failed = std::string("update ") + "6234576666"[i];
    EXPECT_EQ(codes[i] == 0 ? "update 1" : failed, update_event({{kOwn, bytes_of(codes[i])}}));
    EXPECT_EQ(failed, update_event({{"Fail", bytes_of(codes[i])}}));
  }
  EXPECT_EQ("update 6", update_event({{kOwn, Bytes{0, 0, 0}}}));
  EXPECT_EQ("update 6", update_event({{"Fail", Bytes{}}}));
  const bundle_s start = {{"Start", Texts{"a"}}, {kOwn, bytes_of(7)}, {"Complete", "x"}};
  // clang-format off
  const std::tuple<bundle_s, std::string, std::string> rows[] = {
      {start, "update 0", "update 0"},
      {bundle_s{{kOwn, bytes_of(7)}, {"Complete", "x"}, {"Fail", bytes_of(1)}}, "update 4", "nothing"},
      {bundle_s{{"Complete", "x"}, {"Fail", bytes_of(1)}}, "update 1", "nothing"},
      {bundle_s{{"Fail", bytes_of(1)}, {"Complete", Texts{}}}, "update 2", "nothing"},
      {bundle_s{{"Start", "x"}, {kOwn, "x"}, {"Fail", "1"}}, "nothing", "nothing"}};
  // clang-format on
  for (const auto &[data, expected, when_idle] : rows) {
    EXPECT_EQ(when_idle, update_event(data, true));
    EXPECT_EQ(expected, update_event(data));
    EXPECT_EQ(expected == "update 0", UpdateObserver().IsBeingUpdated());
    EXPECT_EQ(expected != when_idle, UpdateObserver().IsIdle());
  }
  platform.app_id = "";
  EXPECT_EQ("update 1", update_event({{"", bytes_of(0)}, {"Complete", "x"}}));
  EXPECT_LOG_HAS("Failed to get app ID.|D UpdateEventCallback: update completed|");
  heard.clear();
  platform.emit(kUpdate, start, "event.other");
  EXPECT_HEARD();
}

TEST_F(EventsTest, UpdateRegistration) {
  bool updating = true;
  EXPECT_EQ(SVCMGR_ERROR_NOT_CONNECTED, korvane_svcmgr_is_being_updated(&updating));
  connect();
  EXPECT_EQ(0, korvane_svcmgr_is_being_updated(&updating));
  EXPECT_FALSE(updating);
  platform.fail("event_add_event_handler", -9);
  EXPECT_EQ(0, korvane_svcmgr_set_update_status_cb(Callback(), nullptr));
  EXPECT_LOG_HAS(SVCMGR_APP_ID + kUpdate + "]|E SetEventCallback: Failed to register event|");
  platform.repair();
  korvane_svcmgr_set_update_status_cb(Callback(), nullptr);
  korvane_svcmgr_set_update_status_cb(on_update_status, this);
  EXPECT_EQ(2, platform.count("event_add_event_handler")) << "one refused, one made";
  platform.fail("event_remove_event_handler", -8);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(0, korvane_svcmgr_unset_update_status_cb());
  EXPECT_EQ(1, platform.count("event_remove_event_handler")) << "not tried again";
  EXPECT_EQ("nothing", update_event({{"Start", Texts{}}}));
  EXPECT_EQ(0, korvane_svcmgr_is_being_updated(&updating));
  EXPECT_TRUE(updating) << "known without a callback, too";
}

TEST_F(EventsTest, ModelStatus) {
  EXPECT_EQ(0, korvane_svcmgr_ai_register_status_cb(on_model_status, this));
  EXPECT_EQ(-22, korvane_svcmgr_ai_register_status_cb(nullptr, nullptr));
  bundle_s start = {{"START", "x"}, {"COMPLETED", "x"}};
  const std::pair<bundle_s, std::string> rows[] = {
      {start, "Received UPDATE EVENT : START"},
      {{{"COMPLETED", "x"}, {"FAILED", "x"}}, "Received UPDATE EVENT : COMPLETED"},
      {{{"FAILED", "x"}, {"START", Bytes{1}}}, "Received UPDATE EVENT : FAILED"},
      {{{"Start", "x"}}, "Received Unknown State"}};
  for (const auto &[data, line] : rows) {
    platform.emit(kModel, data);
    EXPECT_LOG_HAS(" ModelEventCallback: " + line + "|");
  }
  EXPECT_HEARD("model 0 17", "model 0 20", "model 0 24");
  platform.emit(kModel, start, "event.other");
  EXPECT_LOG_HAS("Received Unknown Event|");
  ModelUpdateEventHandler::ModelEventCallback(nullptr, &start, nullptr);
  ModelUpdateEventHandler::ModelEventCallback("event.other", nullptr, nullptr);
  EXPECT_LOG_HAS("INVALID PARAMETER|D ModelEventCallback: Model Event Callback is invoked|E ");
  platform.fail("event_remove_event_handler", -8);
  EXPECT_EQ(-38, korvane_svcmgr_ai_deregister_status_cb());
  platform.emit(kModel, start, "event.other");
  EXPECT_LOG_HAS("There is no registered callback|");
  EXPECT_EQ(0, korvane_svcmgr_ai_deregister_status_cb());
  EXPECT_EQ(3U, heard.size());
}

}  // namespace
