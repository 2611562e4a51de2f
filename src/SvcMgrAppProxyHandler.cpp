#include "SvcMgrAppProxyHandler.h"

#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

#include "AgentStatusEventHandler.h"
#include "SvcMgrAppProxyCallback.h"
#include "UpdateObserver.h"
#include "app.h"
#include "handle_records.h"
#include "heap_text.h"
#include "log.h"

namespace {

using rpc_port::SvcMgrAppProxy::proxy::AgentNameList;
using rpc_port::SvcMgrAppProxy::proxy::AIModelInfo;
using rpc_port::SvcMgrAppProxy::proxy::AIModelList;
using rpc_port::SvcMgrAppProxy::proxy::InvalidIDException;
using rpc_port::SvcMgrAppProxy::proxy::InvalidIOException;
using rpc_port::SvcMgrAppProxy::proxy::PermissionDeniedException;
using rpc_port::SvcMgrAppProxy::proxy::SvcMgrAppPort;

/** The metadata key under which an agent's application states its category. */
const std::string AGENT_CATEGORY_KEY = "ai-agent-category";

// Log messages of the wrappers about a failure of the proxy.
constexpr const char *kProxyException = "PROXY EXCEPTION!!!";
constexpr const char *kUnknownException = "Unknown Exception";

/**
 * The frame of all wrappers of remote calls. Returns not_connected without a
 * port; logs an exception and returns failure.
 */
template <typename Result, typename Body>
Result call_port(const svcmgr::Site &site, SvcMgrAppPort *port, const char *proxy_failure,
                 Result not_connected, Result failure, Body body) {
  if (port == nullptr) {
    LOG_ERROR_AT(site, "Not connected");
    return not_connected;
  }
  try {
    return body(*port);
  } catch (const AppInfoException &exception) {
    LOG_ERROR_AT(site, "%s", exception.what());
  } catch (const rpc_port::SvcMgrAppProxy::proxy::Exception &) {
    LOG_ERROR_AT(site, "%s", proxy_failure);
  } catch (...) {
    LOG_ERROR_AT(site, "%s", kUnknownException);
  }
  return failure;
}

/** The frame of asynchronous calls: body sends a request and does not wait. */
template <typename Body>
int send_request(const svcmgr::Site &site, SvcMgrAppPort *port, Body body) {
  return call_port<int>(site, port, kUnknownException, SVCMGR_ERROR_NOT_CONNECTED,
                        SVCMGR_ERROR_INVALID_OPERATION, [&body](SvcMgrAppPort &connected_port) {
                          body(connected_port);
                          return SVCMGR_ERROR_NONE;
                        });
}

template <typename Call>
std::string app_text(const svcmgr::Site &site, Call call, const char *failure) {
  const svcmgr::HeapText text = svcmgr::take_text(call);
  if (text == nullptr || *text == '\0') {
    LOG_ERROR_AT(site, "%s", failure);
    throw AppInfoException();
  }
  return text.get();
}

/** A text that a request needs; throws when it is not set. */
const char *required_text(const svcmgr::HeapText &text) {
  if (text == nullptr) throw std::invalid_argument("text is not set");
  return text.get();
}

const char *text_or_empty(const svcmgr::HeapText &text) {
  return text ? text.get() : "";
}

/** The list in wire form; add converts one model and logs it. */
template <typename Add>
AIModelList to_wire(const korvane_svcmgr_ai_model_list_s &list, Add add) {
  std::vector<AIModelInfo> models;
  for (const auto &model : list.models) models.push_back(add(*model));
  return AIModelList(std::move(models), static_cast<int>(list.models.size()));
}

}  // namespace

std::string GetAppId() {
  return app_text(HERE, app_get_id, "Failed to get app ID.");
}

std::string GetAppVersion() {
  return app_text(HERE, app_get_version, "Failed to get app version.");
}

SvcMgrAppProxyHandler &SvcMgrAppProxyHandler::GetInstance() {
  // Never destroyed: a port that still exists at process exit is not released.
  static SvcMgrAppProxyHandler &instance = *new SvcMgrAppProxyHandler;
  return instance;
}

int SvcMgrAppProxyHandler::Connect(korvane_svcmgr_connection_cb callback, void *callback_data) {
  LOG_INFO("Connect");
  connection_cb = callback;
  user_data = callback_data;
  if (proxy != nullptr) return SVCMGR_ERROR_NONE;
  int result = -1;
  try {
    proxy = std::make_unique<SvcMgrAppPort>(this, SVCMGR_APP_ID);
    proxy->Connect(false);
    return SVCMGR_ERROR_NONE;
  } catch (const InvalidIDException &) {
    LOG_ERROR("Invalid ID exception occurred!!!");
    result = SVCMGR_ERROR_CONNECTION_FAILED;
  } catch (const InvalidIOException &) {
    LOG_ERROR("Invalid IO exception occurred!!!");
    result = SVCMGR_ERROR_CONNECTION_FAILED;
  } catch (const PermissionDeniedException &) {
    LOG_ERROR("Permission denied exception occurred!!!");
    result = SVCMGR_ERROR_PERMISSION_DENIED;
  } catch (...) {
    LOG_ERROR("Unexpected Exception occurred!!!");
    result = SVCMGR_ERROR_INVALID_OPERATION;
  }
  proxy.reset();
  return result;
}

void SvcMgrAppProxyHandler::Disconnect() {
  LOG_INFO("Disconnect");
  connected = false;
  proxy.reset();
  Watch(&AgentStatusEventHandler::DontCareConnection);
  LOG_INFO("proxy handle was destroyed");
}

int SvcMgrAppProxyHandler::Reconnect() {
  LOG_INFO("Re-connect");
  Disconnect();
  return Connect(connection_cb, user_data);
}

void SvcMgrAppProxyHandler::OnConnected() {
  LOG_INFO("OnConnected");
  connected = true;
  Watch(&AgentStatusEventHandler::KeepConnection);
  if (UpdateObserver().IsReconnectingAfterSvcmgrUpdate()) return;
  TellApplication(SVCMGR_ERROR_NONE, SVCMGR_CONNECTION_CONNECTED);
}

void SvcMgrAppProxyHandler::OnDisconnected() {
  LOG_INFO("OnDisconnected");
  connected = false;
  UpdateObserver observer;
  if (observer.IsSvcmgrUpdatePrepared()) {
    observer.DisconnectForSvcmgrUpdate();
    return;
  }
  TellApplication(SVCMGR_ERROR_NONE, SVCMGR_CONNECTION_DISCONNECTED);
}

void SvcMgrAppProxyHandler::OnRejected() {
  LOG_INFO("OnRejected");
  connected = false;
  TellApplication(SVCMGR_ERROR_PERMISSION_DENIED, SVCMGR_CONNECTION_REJECTED);
}

void SvcMgrAppProxyHandler::TellApplication(int result,
                                            korvane_svcmgr_connection_state_e state) const {
  if (connection_cb != nullptr) connection_cb(result, state, user_data);
}

/** Runs a step of the watcher. A failure, also to create the watcher, is only logged. */
void SvcMgrAppProxyHandler::Watch(void (AgentStatusEventHandler::*step)()) noexcept {
  const svcmgr::Site site = HERE;
  svcmgr::run_callback([step] { (AgentStatusEventHandler::GetInstance().*step)(); },
                       [&site](const char *text) {
                         LOG_ERROR_AT(site, "Failed to watch the service manager: %s", text);
                       });
}

/** The service's answer; -1 on failure. */
int SvcMgrAppProxyHandler::get_agent_api_level() {
  return call_port<int>(HERE, proxy.get(), kProxyException, -1, -1,
                        [](SvcMgrAppPort &port) { return port.get_agent_api_level(); });
}

/** The service's text; empty on failure. */
std::string SvcMgrAppProxyHandler::get_license() {
  return call_port<std::string>(HERE, proxy.get(), kProxyException, {}, {},
                                [](SvcMgrAppPort &port) { return port.get_license(); });
}

/** The service's answer; SVCMGR_ERROR_INVALID_OPERATION on failure. */
int SvcMgrAppProxyHandler::request_update() {
  return call_port<int>(HERE, proxy.get(), kProxyException, SVCMGR_ERROR_INVALID_OPERATION,
                        SVCMGR_ERROR_INVALID_OPERATION, [](SvcMgrAppPort &port) {
                          UpdateObserver().RequestUpdate();
                          return port.request_update();
                        });
}

/** The service's answer; SVCMGR_ERROR_NOT_CONNECTED without a port, else as request_update. */
int SvcMgrAppProxyHandler::request_update_with_list(korvane_svcmgr_agent_list_h list,
                                                    void * /*reserved*/) {
  LOG_DEBUG("RequestInstall");
  const svcmgr::Site site = HERE;
  return call_port<int>(
      site, proxy.get(), kUnknownException, SVCMGR_ERROR_NOT_CONNECTED,
      SVCMGR_ERROR_INVALID_OPERATION, [list, &site](SvcMgrAppPort &port) {
        UpdateObserver().RequestUpdate();
        std::vector<std::string> names;
        for (const svcmgr::HeapText &name : list->names) {
          names.emplace_back(required_text(name));
          LOG_DEBUG_AT(site, "[%s]", name.get());
        }
        const auto count = static_cast<int>(list->names.size());
        return port.request_update_with_list(AgentNameList(std::move(names), count));
      });
}

// The asynchronous calls return 0 when the request was sent, else SVCMGR_ERROR_NOT_CONNECTED,
// SVCMGR_ERROR_INVALID_OPERATION or, for an unknown category, SVCMGR_ERROR_INVALID_PARAMETER.

int SvcMgrAppProxyHandler::GetUsableModelList(korvane_svcmgr_ai_model_list_cb callback,
                                              void *callback_data) {
  LOG_DEBUG("GetUsableModelList");
  return send_request(HERE, proxy.get(), [=](SvcMgrAppPort &port) {
    const std::string app_id = GetAppId();
    const std::string app_version = GetAppVersion();
    port.GetUsableModelList(std::make_unique<GetUsableModelListCB>(callback, callback_data), app_id,
                            app_version);
  });
}

int SvcMgrAppProxyHandler::GetUsableModelListWithDesc(korvane_svcmgr_ai_model_list_cb callback,
                                                      void *callback_data) {
  LOG_DEBUG("GetUsableModelListWithDesc");
  return send_request(HERE, proxy.get(), [=](SvcMgrAppPort &port) {
    const std::string app_id = GetAppId();
    const std::string app_version = GetAppVersion();
    port.GetUsableModelListWithDesc(
        std::make_unique<GetUsableModelListWithDescCB>(callback, callback_data), app_id,
        app_version);
  });
}

int SvcMgrAppProxyHandler::GetUsableModelListWithCategory(korvane_svcmgr_ai_model_list_cb callback,
                                                          const char *category,
                                                          void *callback_data) {
  LOG_DEBUG("GetUsableModelListWithCategory");
  const svcmgr::Site site = HERE;
  const auto send = [=](SvcMgrAppPort &port) -> int {
    try {
      const AgentPackageInfo agent = FindAgentByCategory(category);
      port.GetUsableModelList(std::make_unique<GetUsableModelListCB>(callback, callback_data),
                              agent.package_id, agent.version);
      return SVCMGR_ERROR_NONE;
    } catch (const NoSuchAppException &exception) {
      LOG_DEBUG_AT(site, "=== category [%s] ===", category != nullptr ? category : "(null)");
      LOG_ERROR_AT(site, "%s", exception.what());
      return SVCMGR_ERROR_INVALID_PARAMETER;
    }
  };
  return call_port<int>(site, proxy.get(), kUnknownException, SVCMGR_ERROR_NOT_CONNECTED,
                        SVCMGR_ERROR_INVALID_OPERATION, send);
}

int SvcMgrAppProxyHandler::GetModelVersionList(korvane_svcmgr_ai_model_info_h model,
                                               korvane_svcmgr_ai_model_list_cb callback,
                                               void *callback_data) {
  LOG_DEBUG("GetModelVersionList");
  return send_request(HERE, proxy.get(), [=](SvcMgrAppPort &port) {
    const std::string app_id = GetAppId();
    const std::string app_version = GetAppVersion();
    AIModelInfo wanted;
    wanted.SetId(required_text(model->id));
    port.GetModelVersionList(
        std::make_unique<GetModelVersionListCB>(model, callback, callback_data), wanted, app_id,
        app_version);
  });
}

int SvcMgrAppProxyHandler::RequestToUpdate(korvane_svcmgr_ai_model_list_h models,
                                           korvane_svcmgr_ai_progress_cb callback,
                                           void *callback_data) {
  LOG_DEBUG("RequestToUpdate");
  const svcmgr::Site site = HERE;
  return send_request(site, proxy.get(), [=](SvcMgrAppPort &port) {
    const AIModelList wanted = to_wire(*models, [&site](const auto &model) {
      AIModelInfo info(required_text(model.id), text_or_empty(model.version), {}, {});
      LOG_DEBUG_AT(site, "[%s, %s]", info.GetId().c_str(), info.GetVersion().c_str());
      return info;
    });
    port.RequestToUpdate(std::make_unique<RequestToUpdateCB>(callback, callback_data), wanted);
  });
}

int SvcMgrAppProxyHandler::RequestToUninstall(korvane_svcmgr_ai_model_list_h models,
                                              korvane_svcmgr_ai_progress_cb callback,
                                              void *callback_data) {
  LOG_DEBUG("RequestToUninstall");
  const svcmgr::Site site = HERE;
  return send_request(site, proxy.get(), [=](SvcMgrAppPort &port) {
    const AIModelList wanted = to_wire(*models, [&site](const auto &model) {
      AIModelInfo info;
      info.SetId(required_text(model.id));
      LOG_DEBUG_AT(site, "[%s]", info.GetId().c_str());
      return info;
    });
    port.RequestToUninstall(std::make_unique<RequestToUninstallCB>(callback, callback_data),
                            wanted);
  });
}

AgentPackageInfo SvcMgrAppProxyHandler::FindAgentByCategory(const char *category) {
  AgentPackageInfo record;
  if (category == nullptr) throw NoSuchAppException();
  record.category = category;
  package_manager_foreach_package_info(PackageInfoCallback, &record);
  if (!record.found) throw NoSuchAppException();
  // Found, but memory ran out inside the walk, which exceptions must not cross.
  if (record.package_id.empty()) throw std::bad_alloc();
  return record;
}

bool SvcMgrAppProxyHandler::PackageInfoCallback(package_info_h package, void *user_data) {
  auto &record = *static_cast<AgentPackageInfo *>(user_data);
  const svcmgr::HeapText id =
      svcmgr::take_text([package](char **text) { return package_info_get_package(package, text); });
  const svcmgr::HeapText version =
      svcmgr::take_text([package](char **text) { return package_info_get_version(package, text); });
  if (id == nullptr || version == nullptr) return false;
  if (std::strstr(id.get(), SVCMGR_VENDOR_PREFIX) == nullptr) return true;

  app_info_h handle = nullptr;
  if (app_info_create(id.get(), &handle) != 0) return false;
  const svcmgr::AppInfoOwner application(handle);
  app_info_foreach_metadata(application.get(), MetadataCallback, &record);
  if (!record.found) return true;
  try {
    record.version = version.get();
    record.package_id = id.get();
  } catch (const std::bad_alloc &) {
    record.package_id.clear();
  }
  return false;
}

bool SvcMgrAppProxyHandler::MetadataCallback(const char *key, const char *value, void *user_data) {
  auto &record = *static_cast<AgentPackageInfo *>(user_data);
  if (key == nullptr || key != AGENT_CATEGORY_KEY) return true;
  if (value == nullptr || value != record.category) return true;
  record.found = true;
  return false;
}
