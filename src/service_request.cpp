#include "SvcMgrAppProxyHandler.h"
#include "api_frame.h"
#include "korvane_svcmgr.h"
#include "log.h"

using svcmgr::Site;

namespace {

/** The service API levels that the requests need. */
constexpr int kModelLevel = 8;
constexpr int kCategoryLevel = 11;

// Log messages about a failed request, before its code.
constexpr const char *kListFailure = "connection error";
constexpr const char *kModelFailure = "error";

/**
 * Common to the AI requests. complete states whether all required pointers are given. A failure of
 * the call is logged, and its code is returned unchanged.
 */
template <typename... Arguments>
int request(const Site &site, int level, const char *failure, bool complete,
            int (SvcMgrAppProxyHandler::*call)(Arguments...), Arguments... arguments) try {
  svcmgr::enter(site, svcmgr::EntryLog::kRequest);
  svcmgr::require_service_api_level(level);
  svcmgr::require(site, svcmgr::kNullParameter, complete);
  const int error = (SvcMgrAppProxyHandler::GetInstance().*call)(arguments...);
  if (error != SVCMGR_ERROR_NONE) LOG_ERROR_AT(site, "%s [%d]", failure, error);
  return error;
} catch (...) {
  return svcmgr::failure_code(site);
}

}  // namespace

int korvane_svcmgr_ai_request_usable_model_list(korvane_svcmgr_ai_model_list_cb callback,
                                                void *user_data) {
  return request(HERE, kModelLevel, kListFailure, callback,
                 &SvcMgrAppProxyHandler::GetUsableModelList, callback, user_data);
}

int korvane_svcmgr_ai_request_usable_model_list_with_description(
    korvane_svcmgr_ai_model_list_cb callback, void *user_data) {
  return request(HERE, kModelLevel, kListFailure, callback,
                 &SvcMgrAppProxyHandler::GetUsableModelListWithDesc, callback, user_data);
}

int korvane_svcmgr_ai_request_usable_model_list_with_category(
    korvane_svcmgr_ai_model_list_cb callback, const char *category, void *user_data) {
  return request(HERE, kCategoryLevel, kListFailure, callback,
                 &SvcMgrAppProxyHandler::GetUsableModelListWithCategory, callback, category,
                 user_data);
}

int korvane_svcmgr_ai_request_model_version_list(korvane_svcmgr_ai_model_info_h model,
                                                 korvane_svcmgr_ai_model_list_cb callback,
                                                 void *user_data) {
  return request(HERE, kModelLevel, kModelFailure, model && callback,
                 &SvcMgrAppProxyHandler::GetModelVersionList, model, callback, user_data);
}

int korvane_svcmgr_ai_request_to_update(korvane_svcmgr_ai_model_list_h models,
                                        korvane_svcmgr_ai_progress_cb callback, void *user_data) {
  return request(HERE, kModelLevel, kModelFailure, models && callback,
                 &SvcMgrAppProxyHandler::RequestToUpdate, models, callback, user_data);
}

int korvane_svcmgr_ai_request_to_uninstall(korvane_svcmgr_ai_model_list_h models,
                                           korvane_svcmgr_ai_progress_cb callback,
                                           void *user_data) {
  return request(HERE, kModelLevel, kModelFailure, models && callback,
                 &SvcMgrAppProxyHandler::RequestToUninstall, models, callback, user_data);
}
