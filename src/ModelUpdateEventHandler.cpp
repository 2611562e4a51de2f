#include "ModelUpdateEventHandler.h"

#include "bundle_lookup.h"
#include "log.h"

namespace {

struct StateKey {
  const char *key;
  korvane_svcmgr_ai_state_e state;
};

/** In the order of precedence. */
constexpr StateKey kStateKeys[] = {
    {"START", SVCMGR_AI_STATE_START},
    {"COMPLETED", SVCMGR_AI_STATE_COMPLETED},
    {"FAILED", SVCMGR_AI_STATE_FAILED},
};

}  // namespace

ModelUpdateEventHandler::ModelUpdateEventHandler()
    : subscription("event." SVCMGR_APP_ID ".model_status", ModelEventCallback),
      callback(nullptr),
      user_data(nullptr) {}

void ModelUpdateEventHandler::SetEventCallback(korvane_svcmgr_ai_status_cb application_callback,
                                               void *application_data) {
  callback = application_callback;
  user_data = application_data;
  svcmgr::subscribe(HERE, subscription);
}

bool ModelUpdateEventHandler::UnsetEventCallback() {
  callback = nullptr;
  user_data = nullptr;
  return svcmgr::unsubscribe(HERE, subscription);
}

void ModelUpdateEventHandler::ModelEventCallback(const char *event_name, bundle_h event_data,
                                                 void * /*user_data*/) {
  LOG_DEBUG("Model Event Callback is invoked");
  const svcmgr::Site site = HERE;
  svcmgr::run_event_callback(site,
                             [&] { GetInstance().HandleEvent(site, event_name, event_data); });
}

void ModelUpdateEventHandler::HandleEvent(const svcmgr::Site &site, const char *event_name,
                                          bundle_h event_data) {
  if (event_name == nullptr || event_data == nullptr) {
    LOG_ERROR_AT(site, "EVENT CALLBACK : INVALID PARAMETER");
    return;
  }
  if (callback == nullptr) {
    LOG_INFO_AT(site, "There is no registered callback");
    return;
  }
  if (!subscription.IsFor(event_name)) {
    LOG_ERROR_AT(site, "Received Unknown Event");
    return;
  }
  for (const StateKey &row : kStateKeys) {
    if (!svcmgr::has_string(event_data, row.key)) continue;
    LOG_INFO_AT(site, "Received UPDATE EVENT : %s", row.key);
    callback(SVCMGR_ERROR_NONE, row.state, user_data);
    return;
  }
  LOG_ERROR_AT(site, "Received Unknown State");
}
