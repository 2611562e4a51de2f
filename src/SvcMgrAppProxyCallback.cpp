#include "SvcMgrAppProxyCallback.h"

#include <memory>

#include "handle_records.h"
#include "log.h"

using rpc_port::SvcMgrAppProxy::proxy::AIModelInfo;
using rpc_port::SvcMgrAppProxy::proxy::AIModelList;
using rpc_port::SvcMgrAppProxy::proxy::AIUpdateProgressInfo;

namespace {

/** Releases a model info with its public function, or directly if that function refuses. */
struct DestroyModelInfo {
  void operator()(korvane_svcmgr_ai_model_info_h info) const noexcept {
    if (korvane_svcmgr_ai_model_info_destroy(info) != SVCMGR_ERROR_NONE) delete info;
  }
};
using ModelInfoOwner = std::unique_ptr<korvane_svcmgr_ai_model_info_s, DestroyModelInfo>;

/** Adds a model to the list; leaves it out if a step fails. */
void append_model(const svcmgr::Site &site, korvane_svcmgr_ai_model_list_h list,
                  const AIModelInfo &model) {
  korvane_svcmgr_ai_model_info_h info = nullptr;
  korvane_svcmgr_ai_model_info_create(&info);
  const ModelInfoOwner owner(info);
  const char *const id = model.GetId().c_str();
  const char *const version = model.GetVersion().c_str();
  const char *const title = model.GetTitle().c_str();
  const char *const description = model.GetDescription().c_str();
  LOG_INFO_AT(site, "model [%s - %s - %s - %s]", id, version, title, description);
  if (info != nullptr && korvane_svcmgr_ai_model_info_set_id(info, id) == SVCMGR_ERROR_NONE &&
      korvane_svcmgr_ai_model_info_set_version(info, version) == SVCMGR_ERROR_NONE &&
      korvane_svcmgr_ai_model_info_set_title(info, title) == SVCMGR_ERROR_NONE &&
      korvane_svcmgr_ai_model_info_set_description(info, description) == SVCMGR_ERROR_NONE) {
    korvane_svcmgr_ai_model_list_add(list, info);
  }
}

}  // namespace

void Convert(const AIModelList &models, korvane_svcmgr_ai_model_list_h *out) {
  LOG_INFO("conver AIModelList to model_list_handle");  // sic
  korvane_svcmgr_ai_model_list_h list = nullptr;
  korvane_svcmgr_ai_model_list_create(&list);
  if (list != nullptr && models.GetCount() >= 1) {
    for (const AIModelInfo &model : models.GetModels()) append_model(HERE, list, model);
  }
  LOG_INFO("Successful conversion of [%d] models.", models.GetCount());
  *out = list;
}

void Convert(const AIUpdateProgressInfo &progress, korvane_svcmgr_ai_progress_h *out) {
  LOG_INFO("conver AIUpdateProgressInfo to progress_handle");  // sic
  korvane_svcmgr_ai_progress_h handle = nullptr;
  if (korvane_svcmgr_ai_progress_create(&handle) == SVCMGR_ERROR_NONE) {
    korvane_svcmgr_ai_progress_set_index(handle, progress.GetIndex());
    korvane_svcmgr_ai_progress_set_count(handle, progress.GetCount());
    korvane_svcmgr_ai_progress_set_percentage(handle, progress.GetPercentage());
    korvane_svcmgr_ai_progress_set_state(handle, progress.GetState());
  }
  LOG_INFO("Successful conversion");
  *out = handle;
}

int convert_result(int service_result) {
  switch (service_result) {
    case 0:
    case 2:
    case 10:
      return SVCMGR_ERROR_NONE;
    case 3:
      return SVCMGR_ERROR_UPDATE_IN_PROGRESS;
    case 5:
      return SVCMGR_ERROR_NO_SPACE;
    case 6:
      return SVCMGR_ERROR_SERVICE_CODE_6;
    case 8:
      return SVCMGR_ERROR_QEL_DISABLED;
    case 9:
      return SVCMGR_ERROR_PERMISSION_DENIED;
    default:
      return SVCMGR_ERROR_INVALID_OPERATION;
  }
}

void GetUsableModelListCB::OnReceived(int result_code, AIModelList value) {
  LOG_INFO("GetUsableModelListCB::OnReceived error_code[%d]", result_code);
  Deliver(result_code, value);
}

void GetUsableModelListWithDescCB::OnReceived(int result_code, AIModelList value) {
  LOG_INFO("GetUsableModelListWithDescCB::OnReceived error_code[%d]", result_code);
  Deliver(result_code, value);
}

void GetModelVersionListCB::OnReceived(int result_code, AIModelList value) {
  LOG_DEBUG("GetModelVersionListCB::OnReceived error_code[%d]", result_code);
  Deliver(result_code, value);
}

void RequestToUpdateCB::OnReceived(int result_code, AIUpdateProgressInfo value) {
  LOG_DEBUG("RequestToUpdateCB::OnReceived error_code[%d], state[%d]", result_code,
            value.GetState());
  Deliver(result_code, value);
}

void RequestToUninstallCB::OnReceived(int result_code, AIUpdateProgressInfo value) {
  LOG_DEBUG("RequestToUninstallCB::OnReceived [%d]", value.GetState());
  Deliver(result_code, value);
}
