/** Conversion of asynchronous answers, and their delivery to the application. */
#ifndef KORVANE_SVCMGR_SVC_MGR_APP_PROXY_CALLBACK_H_
#define KORVANE_SVCMGR_SVC_MGR_APP_PROXY_CALLBACK_H_

#include "SvcMgrAppProxy.h"
#include "korvane_svcmgr.h"

/**
 * Stores a new public handle with the structure's contents in out; null when creating it fails.
 *
 * The models of a list are all copied when its count is at least 1, and none
 * otherwise; a model that cannot be copied as a whole is left out.
 */
void Convert(const rpc_port::SvcMgrAppProxy::proxy::AIModelList &models,
             korvane_svcmgr_ai_model_list_h *out);
void Convert(const rpc_port::SvcMgrAppProxy::proxy::AIUpdateProgressInfo &progress,
             korvane_svcmgr_ai_progress_h *out);

/** The error code for a result number of the service manager. */
int convert_result(int service_result);

/** Common to the delegates below: the application's callback and the delivery to it. */
template <typename Delegate, typename Handle>
class ResultCallback : public Delegate {
 public:
  using ApplicationCallback = void (*)(int result, Handle handle, void *user_data);

  ResultCallback(ApplicationCallback application_callback, void *application_data)
      : Delegate(false), callback(application_callback), user_data(application_data) {}

 protected:
  /** The application may destroy this object, so nothing of it is used after the call. */
  template <typename Payload>
  void Deliver(int result_code, const Payload &payload) {
    Handle handle = nullptr;
    Convert(payload, &handle);
    callback(convert_result(result_code), handle, user_data);
  }

 private:
  ApplicationCallback callback;
  void *user_data;
};

class GetUsableModelListCB
    : public ResultCallback<
          rpc_port::SvcMgrAppProxy::proxy::SvcMgrAppPort::GetUsableModelListCallback,
          korvane_svcmgr_ai_model_list_h> {
 public:
  using ResultCallback::ResultCallback;
  void OnReceived(int result_code, rpc_port::SvcMgrAppProxy::proxy::AIModelList value) override;
};

class GetUsableModelListWithDescCB
    : public ResultCallback<
          rpc_port::SvcMgrAppProxy::proxy::SvcMgrAppPort::GetUsableModelListWithDescCallback,
          korvane_svcmgr_ai_model_list_h> {
 public:
  using ResultCallback::ResultCallback;
  void OnReceived(int result_code, rpc_port::SvcMgrAppProxy::proxy::AIModelList value) override;
};

class GetModelVersionListCB
    : public ResultCallback<
          rpc_port::SvcMgrAppProxy::proxy::SvcMgrAppPort::GetModelVersionListCallback,
          korvane_svcmgr_ai_model_list_h> {
 public:
  /** The model is not stored. */
  GetModelVersionListCB(korvane_svcmgr_ai_model_info_h /*model*/,
                        ApplicationCallback application_callback, void *application_data)
      : ResultCallback(application_callback, application_data) {}
  void OnReceived(int result_code, rpc_port::SvcMgrAppProxy::proxy::AIModelList value) override;
};

class RequestToUpdateCB
    : public ResultCallback<rpc_port::SvcMgrAppProxy::proxy::SvcMgrAppPort::RequestToUpdateCallback,
                            korvane_svcmgr_ai_progress_h> {
 public:
  using ResultCallback::ResultCallback;
  void OnReceived(int result_code,
                  rpc_port::SvcMgrAppProxy::proxy::AIUpdateProgressInfo value) override;
};

class RequestToUninstallCB
    : public ResultCallback<
          rpc_port::SvcMgrAppProxy::proxy::SvcMgrAppPort::RequestToUninstallCallback,
          korvane_svcmgr_ai_progress_h> {
 public:
  using ResultCallback::ResultCallback;
  void OnReceived(int result_code,
                  rpc_port::SvcMgrAppProxy::proxy::AIUpdateProgressInfo value) override;
};

#endif  // KORVANE_SVCMGR_SVC_MGR_APP_PROXY_CALLBACK_H_
