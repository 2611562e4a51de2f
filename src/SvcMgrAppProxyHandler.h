/** The one connection of the process, and all remote calls over it. */
#ifndef KORVANE_SVCMGR_SVC_MGR_APP_PROXY_HANDLER_H_
#define KORVANE_SVCMGR_SVC_MGR_APP_PROXY_HANDLER_H_

#include <memory>
#include <string>

#include "OrvelEventHandler.h"
#include "SvcMgrAppProxy.h"
#include "korvane_svcmgr.h"
#include "package.h"

class AgentStatusEventHandler;

/** The calling application's ID or version cannot be read. */
class AppInfoException : public SvcmgrException {
 public:
  const char *what() const noexcept override { return "Failed to get app info."; }
};

/** No agent package has the requested category. */
class NoSuchAppException : public SvcmgrException {
 public:
  const char *what() const noexcept override { return "No such package for the category."; }
};

/** The calling application's ID. Throws AppInfoException. */
std::string GetAppId();
/** The calling application's version text. Throws AppInfoException. */
std::string GetAppVersion();

/** An agent package, found by the category of its application. */
struct AgentPackageInfo {
  std::string package_id;
  std::string version;
  std::string category;
  bool found = false;
};

/**
 * Owns the port to the service manager.
 *
 * A port object exists from Connect to Disconnect, also while the connection is
 * being made or is lost: Connect then only replaces the application's callback.
 * After a loss the agent-status watcher reconnects.
 */
class SvcMgrAppProxyHandler
    : public rpc_port::SvcMgrAppProxy::proxy::SvcMgrAppPort::IEventListener {
 public:
  SvcMgrAppProxyHandler(const SvcMgrAppProxyHandler &) = delete;
  SvcMgrAppProxyHandler &operator=(const SvcMgrAppProxyHandler &) = delete;

  static SvcMgrAppProxyHandler &GetInstance();

  bool IsConnected() const { return connected; }
  int Connect(korvane_svcmgr_connection_cb callback, void *callback_data);
  void Disconnect();
  int Reconnect();

  void OnConnected() override;
  void OnDisconnected() override;
  void OnRejected() override;

  virtual ~SvcMgrAppProxyHandler() = default;

  // Remote calls. None throws; the result of a failure is documented at the definition.
  int get_agent_api_level();
  std::string get_license();
  int request_update();
  int request_update_with_list(korvane_svcmgr_agent_list_h list, void *reserved);
  int GetUsableModelList(korvane_svcmgr_ai_model_list_cb callback, void *callback_data);
  int GetUsableModelListWithDesc(korvane_svcmgr_ai_model_list_cb callback, void *callback_data);
  int GetUsableModelListWithCategory(korvane_svcmgr_ai_model_list_cb callback, const char *category,
                                     void *callback_data);
  int GetModelVersionList(korvane_svcmgr_ai_model_info_h model,
                          korvane_svcmgr_ai_model_list_cb callback, void *callback_data);
  int RequestToUpdate(korvane_svcmgr_ai_model_list_h models, korvane_svcmgr_ai_progress_cb callback,
                      void *callback_data);
  int RequestToUninstall(korvane_svcmgr_ai_model_list_h models,
                         korvane_svcmgr_ai_progress_cb callback, void *callback_data);

  /**
   * The first agent package whose application has the category.
   *
   * Throws NoSuchAppException, also for a null category.
   */
  static AgentPackageInfo FindAgentByCategory(const char *category);

 private:
  SvcMgrAppProxyHandler() = default;

  void TellApplication(int result, korvane_svcmgr_connection_state_e state) const;
  static void Watch(void (AgentStatusEventHandler::*step)()) noexcept;

  static bool PackageInfoCallback(package_info_h package, void *user_data);
  static bool MetadataCallback(const char *key, const char *value, void *user_data);

  std::unique_ptr<rpc_port::SvcMgrAppProxy::proxy::SvcMgrAppPort> proxy;
  bool connected = false;
  korvane_svcmgr_connection_cb connection_cb = nullptr;
  void *user_data = nullptr;
};

#endif  // KORVANE_SVCMGR_SVC_MGR_APP_PROXY_HANDLER_H_
