Programs that wait while the service manager updates, restarts or ends.

  $ ctl() { svcmgr-emulator ctl "$@" >/dev/null; }
  $ serve() { ctl stop 2>/dev/null; exec 4< <(exec svcmgr-emulator --tick "$1" 2>log); read -r -t 60 -u 4; }
  $ trap 'kill -KILL "$program" 2>/dev/null; ctl stop 2>/dev/null' EXIT
  $ start() { exec 3< <(exec "$@" 2>&1); program=$!; }
  $ next() { read -r -t 60 -u 3 line; echo "$line"; }
  $ finish() { cat <&3; wait "$program"; }

A program that is interrupted says that the update continues:

  $ serve 60000
  $ start svcmgrctl update
  $ next
  update started
  $ kill -INT "$program"
  $ finish
  svcmgrctl: INTERRUPTED (-4): interrupted; the service manager continues the work, but no later command can report its end
  [130]

An update under way serves further requests, except those that name agents:

  $ svcmgrctl update --timeout 0.05
  svcmgrctl: TIMEOUT (-110): the service manager did not answer within the time limit (see --timeout); the service manager continues the work, but no later command can report its end
  [1]
  $ start svcmgrctl models update vision.detect
  $ next
  vision.detect (1/1): started
  $ kill -INT "$program"
  $ finish | grep -o 'and "svcmgrctl watch" .*'
  and "svcmgrctl watch" shows its end
  $ svcmgrctl update com.korvane.device.speech
  svcmgrctl: SVCMGR_ERROR_UPDATE_IN_PROGRESS (-1073741831): the service manager is already updating
  [1]

The time limit of an answer starts again with each of the 32 reports:

  $ serve 100
  $ svcmgrctl --timeout 3 models update $(yes vision.detect | head -n 8) | tail -n 1
  vision.detect (8/8): completed

A program on a terminal shows that it waits. Interrupted, it gives its request up:

  $ ctl silent GetUsableModelList
  $ script -qec 'svcmgrctl --timeout 1.5 models list' /dev/null </dev/null | tr -d '\r'
  svcmgrctl: waiting for the service manager\xe2\x80\xa6 (esc)
  svcmgrctl: TIMEOUT * (glob)
  $ start svcmgrctl --timeout 0 models list
  $ until svcmgr-emulator ctl status | grep -q '"requests": 3,'; do :; done
  $ kill -INT "$program"
  $ finish
  svcmgrctl: INTERRUPTED (-4): interrupted before the service manager answered; the answer will be dropped
  [130]

A service manager that ends during a call is reported as such:

  $ for command in agent-level license; do
  >   serve 2
  >   ctl crash-before-reply
  >   svcmgrctl $command
  > done
  svcmgrctl: SVCMGR_ERROR_NOT_CONNECTED (-107): the connection was lost, so there will be no answer; try again
  svcmgrctl: SVCMGR_ERROR_NOT_CONNECTED (-107): the connection was lost, so there will be no answer; try again
  [1]

A watch ends with its device:

  $ env -u KORVANE_DEVICE -u KORVANE_APP_ID svcmgr-emulator run -- sh -c 'svcmgrctl watch >output 2>&1 & until grep -qs connected output; do :; done'
  $ until grep -q NO_DEVICE output; do :; done
  $ cat output
  connected
  disconnected: the connection was lost
  svcmgrctl: NO_DEVICE (-2): the device directory * was removed (glob)

An update of the service manager ends a request, but not an update of agents:

  $ serve 200
  $ ctl silent GetUsableModelList
  $ start svcmgrctl --timeout 0 models list
  $ until svcmgr-emulator ctl status | grep -q '"requests": 1,'; do :; done
  $ ctl update
  $ finish
  svcmgrctl: SVCMGR_ERROR_NOT_CONNECTED (-107): the service manager updated itself, so there will be no answer; try again
  [1]
  $ start svcmgrctl --timeout 0 update
  $ next
  update started
  $ ctl update
  $ cat <&3 | tail -n 1
  update completed

A watch shows what is not reported to applications. A stopped one does not delay an update:

  $ start svcmgrctl watch
  $ next
  connected
  $ ctl update
  $ next
  disconnected: the connection was lost (by an update of the service manager; not reported to applications)
  $ next
  connected (by an update of the service manager; not reported to applications)
  $ kill -INT "$program"
  $ finish
  $ start svcmgrctl watch
  $ next
  connected
  $ kill -STOP "$program"
  $ ctl update
  $ kill -KILL "$program"

The stop command returns after the end, even if the emulator runs on idle time of one processor:

  $ processor=$(awk '{ print $39 }' /proc/self/stat)
  $ serve 2
  $ service=$!
  $ taskset -cp "$processor" $$ >/dev/null
  $ taskset -cp "$processor" "$service" >/dev/null
  $ chrt -ip 0 "$service"
  $ ctl stop
  $ grep -s ^State: "/proc/$service/status" | grep -v zombie
  [1]
  $ serve 2

A restart that fails is tried again until it succeeds:

  $ chmod a+rwx "$KORVANE_DEVICE/run/rpc"
  $ start svcmgr-emulator ctl restart
  $ until grep -q 'the port cannot be opened yet' log; do :; done
  $ svcmgr-emulator ctl restart
  svcmgr-emulator: the service manager is restarting already
  [1]
  $ chmod go-rwx "$KORVANE_DEVICE/run/rpc"
  $ finish
  $ svcmgrctl agent-level
  13

The loop of the guide connects where the library does not, and sees losses that are not reported:

  $ ctl stop
  $ start env KORVANE_LOG=none snippet_stay_connected
  $ serve 2
  $ next
  connected
  $ ctl update
  $ until svcmgr-emulator ctl status | grep -q com.example.viewer; do :; done
  $ ctl restart
  $ next
  not connected
  $ next
  connected
  $ kill -KILL "$program"

So does the client of the guide, which also follows updates:

  $ ctl stop
  $ start env KORVANE_LOG=none snippet_follow
  $ next
  not connected yet: the connection could not be started; the service manager does not run
  $ serve 2
  $ next
  connected
  $ svcmgrctl models update vision.detect >/dev/null
  $ next
  update of models: state 17
  $ next
  update of models: state 20
  $ ctl restart
  $ next
  not connected
  $ next
  connected
