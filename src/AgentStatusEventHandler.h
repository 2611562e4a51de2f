/** Keeps the connection across an update or a restart of the service manager. */
#ifndef KORVANE_SVCMGR_AGENT_STATUS_EVENT_HANDLER_H_
#define KORVANE_SVCMGR_AGENT_STATUS_EVENT_HANDLER_H_

#include "OrvelEventHandler.h"

/**
 * Watches the service manager's agent-status event while the application wants
 * its connection kept, and reconnects when the service manager is launched again.
 */
class AgentStatusEventHandler : public Singleton<AgentStatusEventHandler> {
 public:
  virtual ~AgentStatusEventHandler() = default;

  /** The connection was made: starts watching. */
  void KeepConnection();
  /** The connection is being ended: stops watching. */
  void DontCareConnection();
  static void AgentEventCallback(const char *event_name, bundle_h event_data, void *user_data);

 private:
  friend class Singleton<AgentStatusEventHandler>;
  AgentStatusEventHandler();

  void HandleEvent(const svcmgr::Site &site, const char *event_name, bundle_h event_data);

  bool keep_connection;
  OrvelEventHandler subscription;
};

#endif  // KORVANE_SVCMGR_AGENT_STATUS_EVENT_HANDLER_H_
