#include "UpdateObserver.h"

#include "log.h"

namespace {

UpdateState update_state = IDLE;

void move_state(UpdateState from, UpdateState to) {
  if (update_state == from) update_state = to;
}

}  // namespace

void UpdateObserver::RequestUpdate() {
  update_state = UPDATE_REQUESTED;
}

void UpdateObserver::PrepareSvcmgrUpdate() {
  update_state = SVCMGR_UPDATE_PREPARED;
  LOG_INFO(  // sic
      "The connection to the proxy will be disconnected soonas the service-manager is updated.");
}

void UpdateObserver::DisconnectForSvcmgrUpdate() {
  move_state(SVCMGR_UPDATE_PREPARED, SVCMGR_DISCONNECTED);
}

void UpdateObserver::ReconnectAfterSvcmgrUpdate() {
  move_state(SVCMGR_DISCONNECTED, SVCMGR_RELAUNCHED);
}

void UpdateObserver::StartUpdate() {
  update_state = UPDATE_STARTED;
}

void UpdateObserver::FinishUpdate() {
  update_state = IDLE;
}

bool UpdateObserver::IsIdle() const {
  return update_state == IDLE;
}

bool UpdateObserver::IsSvcmgrUpdatePrepared() const {
  return update_state == SVCMGR_UPDATE_PREPARED;
}

bool UpdateObserver::IsReconnectingAfterSvcmgrUpdate() const {
  return update_state == SVCMGR_RELAUNCHED;
}

bool UpdateObserver::IsBeingUpdated() const {
  return update_state > UPDATE_REQUESTED;
}
