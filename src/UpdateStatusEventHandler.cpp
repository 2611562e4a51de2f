#include "UpdateStatusEventHandler.h"

#include "UpdateObserver.h"
#include "app.h"
#include "bundle_lookup.h"
#include "heap_text.h"
#include "log.h"

namespace {

korvane_svcmgr_update_status_e failure_status(std::int32_t code) {
  switch (code) {
    case 1:
      return SVCMGR_UPDATE_STATUS_FAILED_CODE_1;
    case 3:
      return SVCMGR_UPDATE_STATUS_FAILED_CODE_3;
    case 7:
      return SVCMGR_UPDATE_STATUS_FAILED_CODE_7;
    case 10:
      return SVCMGR_UPDATE_STATUS_FAILED_CODE_10;
    case 13:
      return SVCMGR_UPDATE_STATUS_FAILED_CODE_13;
    default:
      return SVCMGR_UPDATE_STATUS_FAILED_OTHER;
  }
}

}  // namespace

UpdateStatusEventHandler::UpdateStatusEventHandler()
    : subscription("event." SVCMGR_APP_ID ".update_status", UpdateEventCallback),
      callback(nullptr),
      user_data(nullptr) {}

void UpdateStatusEventHandler::SetEventCallback(
    korvane_svcmgr_update_status_cb application_callback, void *application_data) {
  callback = application_callback;
  user_data = application_data;
  svcmgr::subscribe(HERE, subscription);
}

void UpdateStatusEventHandler::UnsetEventCallback() {
  callback = nullptr;
  user_data = nullptr;
  svcmgr::unsubscribe(HERE, subscription);
}

void UpdateStatusEventHandler::UpdateEventCallback(const char *event_name, bundle_h event_data,
                                                   void * /*user_data*/) {
  LOG_DEBUG("Update status callback is invoked");
  const svcmgr::Site site = HERE;
  svcmgr::run_event_callback(site,
                             [&] { GetInstance().HandleEvent(site, event_name, event_data); });
}

void UpdateStatusEventHandler::HandleEvent(const svcmgr::Site &site, const char *event_name,
                                           bundle_h event_data) {
  if (!subscription.IsFor(event_name)) return;
  if (svcmgr::has_string_array(event_data, "Start")) {
    LOG_DEBUG_AT(site, "update started");
    UpdateObserver().StartUpdate();
    if (callback != nullptr) callback(SVCMGR_UPDATE_STATUS_STARTED, user_data);
    return;
  }
  if (HandleOwnResult(site, event_data)) return;
  if (svcmgr::has_string(event_data, "Complete")) {
    LOG_DEBUG_AT(site, "update completed");
    FinishUpdate(SVCMGR_UPDATE_STATUS_COMPLETED);
    return;
  }
  if (const auto code = svcmgr::find_code(event_data, "Fail")) {
    LOG_DEBUG_AT(site, "update failed");
    FinishUpdate(failure_status(*code));
  }
}

bool UpdateStatusEventHandler::HandleOwnResult(const svcmgr::Site &site, bundle_h event_data) {
  const svcmgr::HeapText app_id = svcmgr::take_text(app_get_id);
  if (app_id == nullptr || *app_id == '\0') {
    LOG_ERROR_AT(site, "Failed to get app ID.");
    return false;
  }
  const auto code = svcmgr::find_code(event_data, app_id.get());
  if (code) FinishUpdate(*code == 0 ? SVCMGR_UPDATE_STATUS_COMPLETED : failure_status(*code));
  return code.has_value();
}

/** Ends the update. The application is called only if one was requested or under way. */
void UpdateStatusEventHandler::FinishUpdate(korvane_svcmgr_update_status_e status) {
  UpdateObserver observer;
  if (callback != nullptr && !observer.IsIdle()) callback(status, user_data);
  observer.FinishUpdate();
}
