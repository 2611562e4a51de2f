#include "SvcMgrAppProxyHandler.h"
#include "api_frame.h"
#include "korvane_svcmgr.h"
#include "log.h"

using svcmgr::Site;

namespace {

/** The service API levels that introduced the requests. */
constexpr int kModelLevel = 8;
constexpr int kCategoryLevel = 11;

/**
 * An AI request: the entry, the required pointers in order, and the handler's call.
 *
 * log_error logs a failure of the call, whose code is returned unchanged.
 */
template <typename Call, typename LogError, typename... Pointers>
int request(const Site &site, int level, LogError log_error, Call call, Pointers... required) try {
  svcmgr::enter(site, svcmgr::EntryLog::kRequest);
  svcmgr::require_service_api_level(level);
  svcmgr::require(site, svcmgr::kNullParameter, required...);
  const int error = call(SvcMgrAppProxyHandler::GetInstance());
  if (error != SVCMGR_ERROR_NONE) log_error(site, error);
  return error;
} catch (...) {
  return svcmgr::failure_code(site);
}

void log_list_error(const Site &site, int error) {
  LOG_ERROR_AT(site, "connection error [%d]", error);
}

void log_model_error(const Site &site, int error) {
  LOG_ERROR_AT(site, "error [%d]", error);
}

}  // namespace

int korvane_svcmgr_ai_request_usable_model_list(korvane_svcmgr_ai_model_list_cb callback,
                                                void *user_data) {
  return request(
      HERE, kModelLevel, log_list_error,
      [=](SvcMgrAppProxyHandler &handler) {
        return handler.GetUsableModelList(callback, user_data);
      },
      callback);
}

int korvane_svcmgr_ai_request_usable_model_list_with_description(
    korvane_svcmgr_ai_model_list_cb callback, void *user_data) {
  return request(
      HERE, kModelLevel, log_list_error,
      [=](SvcMgrAppProxyHandler &handler) {
        return handler.GetUsableModelListWithDesc(callback, user_data);
      },
      callback);
}

int korvane_svcmgr_ai_request_usable_model_list_with_category(
    korvane_svcmgr_ai_model_list_cb callback, const char *category, void *user_data) {
  return request(
      HERE, kCategoryLevel, log_list_error,
      [=](SvcMgrAppProxyHandler &handler) {
        return handler.GetUsableModelListWithCategory(callback, category, user_data);
      },
      callback);
}

int korvane_svcmgr_ai_request_model_version_list(korvane_svcmgr_ai_model_info_h model,
                                                 korvane_svcmgr_ai_model_list_cb callback,
                                                 void *user_data) {
  return request(
      HERE, kModelLevel, log_model_error,
      [=](SvcMgrAppProxyHandler &handler) {
        return handler.GetModelVersionList(model, callback, user_data);
      },
      model, callback);
}

int korvane_svcmgr_ai_request_to_update(korvane_svcmgr_ai_model_list_h models,
                                        korvane_svcmgr_ai_progress_cb callback, void *user_data) {
  return request(
      HERE, kModelLevel, log_model_error,
      [=](SvcMgrAppProxyHandler &handler) {
        return handler.RequestToUpdate(models, callback, user_data);
      },
      models, callback);
}

int korvane_svcmgr_ai_request_to_uninstall(korvane_svcmgr_ai_model_list_h models,
                                           korvane_svcmgr_ai_progress_cb callback,
                                           void *user_data) {
  return request(
      HERE, kModelLevel, log_model_error,
      [=](SvcMgrAppProxyHandler &handler) {
        return handler.RequestToUninstall(models, callback, user_data);
      },
      models, callback);
}
