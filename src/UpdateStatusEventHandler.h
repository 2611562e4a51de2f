/** Reports the course of agent updates to the application. */
#ifndef KORVANE_SVCMGR_UPDATE_STATUS_EVENT_HANDLER_H_
#define KORVANE_SVCMGR_UPDATE_STATUS_EVENT_HANDLER_H_

#include "OrvelEventHandler.h"
#include "korvane_svcmgr.h"

/** Subscribed to the service manager's update-status event while the application has a callback. */
class UpdateStatusEventHandler : public Singleton<UpdateStatusEventHandler> {
 public:
  virtual ~UpdateStatusEventHandler() = default;

  /** Stores the callback and subscribes; a refused subscription is only logged. */
  void SetEventCallback(korvane_svcmgr_update_status_cb application_callback,
                        void *application_data);
  void UnsetEventCallback();
  static void UpdateEventCallback(const char *event_name, bundle_h event_data, void *user_data);

 private:
  friend class Singleton<UpdateStatusEventHandler>;
  UpdateStatusEventHandler();

  void HandleEvent(const svcmgr::Site &site, const char *event_name, bundle_h event_data);
  bool HandleOwnResult(const svcmgr::Site &site, bundle_h event_data);
  void FinishUpdate(korvane_svcmgr_update_status_e status);

  OrvelEventHandler subscription;
  korvane_svcmgr_update_status_cb callback;
  void *user_data;
};

#endif  // KORVANE_SVCMGR_UPDATE_STATUS_EVENT_HANDLER_H_
