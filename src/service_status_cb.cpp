#include "ModelUpdateEventHandler.h"
#include "api_frame.h"
#include "korvane_svcmgr.h"
#include "log.h"

using svcmgr::enter;
using svcmgr::EntryLog;
using svcmgr::failure_code;

int korvane_svcmgr_ai_register_status_cb(korvane_svcmgr_ai_status_cb callback,
                                         void *user_data) try {
  enter(HERE, EntryLog::kRequest);
  svcmgr::require(HERE, svcmgr::kNullParameter, callback);
  ModelUpdateEventHandler::GetInstance().SetEventCallback(callback, user_data);
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}

int korvane_svcmgr_ai_deregister_status_cb(void) try {
  enter(HERE, EntryLog::kRequest);
  if (!ModelUpdateEventHandler::GetInstance().UnsetEventCallback()) {
    LOG_ERROR("UnsetEventCallback Error");
    return SVCMGR_ERROR_INVALID_OPERATION;
  }
  return SVCMGR_ERROR_NONE;
} catch (...) {
  return failure_code(HERE);
}
