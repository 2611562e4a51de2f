#include "library_test.h"

namespace {

/** What an application does inside a callback; the library must not touch what it took away. */
class CallbacksTest : public LibraryTest {
 protected:
  void request_all() {
    korvane_svcmgr_ai_request_usable_model_list(on_models, this);
    korvane_svcmgr_ai_request_model_version_list(handles.info, on_models, this);
    korvane_svcmgr_ai_request_to_update(handles.models, on_progress, this);
    korvane_svcmgr_set_update_status_cb(on_update_status, this);
    korvane_svcmgr_ai_register_status_cb(on_model_status, this);
  }
  void leave() {
    platform.report_connected();
    korvane_svcmgr_disconnect();
    korvane_svcmgr_unset_update_status_cb();
    korvane_svcmgr_ai_deregister_status_cb();
  }
  void come_back() {
    leave();
    start_connecting();
    platform.report_connected();
    request_all();
  }
  Handles handles{true};
};

TEST_F(CallbacksTest, MayDoAnything) {
  // clang-format off
  const std::function<void()> events[] = {
      [&] { platform.report_connected(); }, [&] { platform.report_disconnected(); },
      [&] { platform.report_rejected(); }, [&] { answer(1, {0, Count{1}, "a", "b", "c", "d", 1}); },
      [&] { answer(3, {0, Count{0}, 0}); }, [&] { answer(4, {0, 17, 1, 2, 3}); },
      [&] { platform.emit(".update_status", {{"Start", Texts{}}}); },
      [&] { platform.emit(".update_status", {{"Complete", "x"}}); },
      [&] { platform.emit(".update_status", {{"org.example.app", Bytes{0, 0, 0, 0}}}); },
      [&] { platform.emit(".model_status", {{"START", "x"}}); }};
  // clang-format on
  const std::function<void()> deeds[] = {[&] { leave(); }, [&] { request_all(); },
                                         [&] { come_back(); }};
  for (const auto &event : events) {
    for (const auto &deed : deeds) {
      connect();
      request_all();
      platform.emit(".update_status", {{"Start", Texts{}}});
      reaction = deed;
      event();
      EXPECT_FALSE(reaction) << "the callback was not called";
      EXPECT_EQ(&deed == deeds ? 0U : 1U, platform.proxies.size());
      if (&deed != deeds) event();
      TearDown();
      platform.reset();
    }
  }
}

}  // namespace
