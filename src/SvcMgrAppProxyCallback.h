/** Answers to asynchronous requests on their way to the application. */
#ifndef KORVANE_SVCMGR_SVC_MGR_APP_PROXY_CALLBACK_H_
#define KORVANE_SVCMGR_SVC_MGR_APP_PROXY_CALLBACK_H_

#include "SvcMgrAppProxy.h"
#include "korvane_svcmgr.h"

/**
 * A public handle with the structure's contents, through out; null when it could not be made.
 *
 * The models of a list are all taken over when its count is at least 1, and
 * none otherwise; a model that memory does not suffice for is left out.
 */
void Convert(const rpc_port::SvcMgrAppProxy::proxy::AIModelList &models,
             korvane_svcmgr_ai_model_list_h *out);
void Convert(const rpc_port::SvcMgrAppProxy::proxy::AIUpdateProgressInfo &progress,
             korvane_svcmgr_ai_progress_h *out);

/** The error code for a result number of the service manager. */
int convert_result(int service_result);

// One class per kind of request. OnReceived calls the application, which may destroy the object.
#define SVCMGR_RESULT_CALLBACK_MEMBERS(payload, callback_type)                               \
 public:                                                                                     \
  void OnReceived(int result_code, rpc_port::SvcMgrAppProxy::proxy::payload value) override; \
                                                                                             \
 private:                                                                                    \
  callback_type callback;                                                                    \
  void *user_data

#define SVCMGR_RESULT_CALLBACK(name, payload, callback_type)                                    \
  class name##CB : public rpc_port::SvcMgrAppProxy::proxy::SvcMgrAppPort::name##Callback {      \
   public:                                                                                      \
    name##CB(callback_type application_callback, void *application_data)                        \
        : name##Callback(false), callback(application_callback), user_data(application_data) {} \
    SVCMGR_RESULT_CALLBACK_MEMBERS(payload, callback_type);                                     \
  }

SVCMGR_RESULT_CALLBACK(GetUsableModelList, AIModelList, korvane_svcmgr_ai_model_list_cb);
SVCMGR_RESULT_CALLBACK(GetUsableModelListWithDesc, AIModelList, korvane_svcmgr_ai_model_list_cb);
SVCMGR_RESULT_CALLBACK(RequestToUpdate, AIUpdateProgressInfo, korvane_svcmgr_ai_progress_cb);
SVCMGR_RESULT_CALLBACK(RequestToUninstall, AIUpdateProgressInfo, korvane_svcmgr_ai_progress_cb);

class GetModelVersionListCB
    : public rpc_port::SvcMgrAppProxy::proxy::SvcMgrAppPort::GetModelVersionListCallback {
 public:
  /** The model that the request is about is not kept. */
  GetModelVersionListCB(korvane_svcmgr_ai_model_info_h /*model*/,
                        korvane_svcmgr_ai_model_list_cb application_callback,
                        void *application_data)
      : GetModelVersionListCallback(false),
        callback(application_callback),
        user_data(application_data) {}
  SVCMGR_RESULT_CALLBACK_MEMBERS(AIModelList, korvane_svcmgr_ai_model_list_cb);
};

#undef SVCMGR_RESULT_CALLBACK
#undef SVCMGR_RESULT_CALLBACK_MEMBERS

#endif  // KORVANE_SVCMGR_SVC_MGR_APP_PROXY_CALLBACK_H_
