/** Reports the state of model updates on the device to the application. */
#ifndef KORVANE_SVCMGR_MODEL_UPDATE_EVENT_HANDLER_H_
#define KORVANE_SVCMGR_MODEL_UPDATE_EVENT_HANDLER_H_

#include "OrvelEventHandler.h"
#include "korvane_svcmgr.h"

/** Subscribed to the service manager's model-status event while the application has a callback. */
class ModelUpdateEventHandler : public Singleton<ModelUpdateEventHandler> {
 public:
  virtual ~ModelUpdateEventHandler() = default;

  /** Stores the callback and subscribes; a refused subscription is only logged. */
  void SetEventCallback(korvane_svcmgr_ai_status_cb application_callback, void *application_data);
  /** Clears the callback and unsubscribes; false when the platform refuses to unsubscribe. */
  bool UnsetEventCallback();
  static void ModelEventCallback(const char *event_name, bundle_h event_data, void *user_data);

 private:
  friend class Singleton<ModelUpdateEventHandler>;
  ModelUpdateEventHandler();

  void HandleEvent(const svcmgr::Site &site, const char *event_name, bundle_h event_data);

  OrvelEventHandler subscription;
  korvane_svcmgr_ai_status_cb callback;
  void *user_data;
};

#endif  // KORVANE_SVCMGR_MODEL_UPDATE_EVENT_HANDLER_H_
