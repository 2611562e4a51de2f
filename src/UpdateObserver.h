/** The state of updates, of agents and of the service manager itself. */
#ifndef KORVANE_SVCMGR_UPDATE_OBSERVER_H_
#define KORVANE_SVCMGR_UPDATE_OBSERVER_H_

/** The process-wide update state. */
enum UpdateState : int {
  IDLE = 0,                    ///< nothing known to be under way
  UPDATE_REQUESTED = 1,        ///< this application has sent an update request
  SVCMGR_UPDATE_PREPARED = 2,  ///< the service manager announced its own update
  SVCMGR_DISCONNECTED = 3,     ///< the connection dropped after that announcement
  SVCMGR_RELAUNCHED = 4,       ///< the service manager announced its launch after the drop
  UPDATE_STARTED = 5,          ///< the service manager reported that an update started
};

/**
 * Access to the one update state of the process. Has no data; create one where needed.
 *
 * The state stays SVCMGR_RELAUNCHED after the reconnection, until the next
 * update request or update-status event.
 */
class UpdateObserver {
 public:
  void RequestUpdate();
  void PrepareSvcmgrUpdate();
  /** SVCMGR_UPDATE_PREPARED becomes SVCMGR_DISCONNECTED; any other state stays. */
  void DisconnectForSvcmgrUpdate();
  /** SVCMGR_DISCONNECTED becomes SVCMGR_RELAUNCHED; any other state stays. */
  void ReconnectAfterSvcmgrUpdate();
  void StartUpdate();
  void FinishUpdate();

  bool IsIdle() const;
  bool IsSvcmgrUpdatePrepared() const;
  bool IsReconnectingAfterSvcmgrUpdate() const;
  /** Whether an update is under way; one that was only requested does not count. */
  bool IsBeingUpdated() const;
};

#endif  // KORVANE_SVCMGR_UPDATE_OBSERVER_H_
