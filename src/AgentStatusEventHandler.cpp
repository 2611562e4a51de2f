#include "AgentStatusEventHandler.h"

#include "SvcMgrAppProxyHandler.h"
#include "UpdateObserver.h"
#include "bundle_lookup.h"
#include "log.h"

AgentStatusEventHandler::AgentStatusEventHandler()
    : keep_connection(false),
      subscription("event." SVCMGR_APP_ID ".agent_status", AgentEventCallback) {}

void AgentStatusEventHandler::KeepConnection() {
  LOG_INFO("Keep the CONNECTION");
  keep_connection = true;
  svcmgr::subscribe(HERE, subscription);
}

void AgentStatusEventHandler::DontCareConnection() {
  LOG_INFO("Don't care about CONNECTION");
  keep_connection = false;
  svcmgr::unsubscribe(HERE, subscription);
}

void AgentStatusEventHandler::AgentEventCallback(const char *event_name, bundle_h event_data,
                                                 void * /*user_data*/) {
  LOG_DEBUG("Agent status callback is invoked");
  const svcmgr::Site site = HERE;
  svcmgr::run_event_callback(site,
                             [&] { GetInstance().HandleEvent(site, event_name, event_data); });
}

void AgentStatusEventHandler::HandleEvent(const svcmgr::Site &site, const char *event_name,
                                          bundle_h event_data) {
  if (!subscription.IsFor(event_name)) return;
  if (svcmgr::has_string(event_data, "Update")) {
    UpdateObserver().PrepareSvcmgrUpdate();
    return;
  }
  SvcMgrAppProxyHandler &handler = SvcMgrAppProxyHandler::GetInstance();
  if (svcmgr::has_string(event_data, "Launch") && !handler.IsConnected() && keep_connection) {
    LOG_DEBUG_AT(site, "Service manager is disconnected. Try to reconnect");
    UpdateObserver().ReconnectAfterSvcmgrUpdate();
    handler.Reconnect();
  }
}
