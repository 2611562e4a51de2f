The emulator serves what its state file contains.

  $ state=$KORVANE_DEVICE/service/state.json
  $ cp "$state" sound
  $ ctl() { svcmgr-emulator ctl "$@"; }

A link in place of a new state file is not followed:

  $ emulator=$(ctl status | sed -n 's/.*"pid": \([0-9]*\).*/\1/p')
  $ ln -s target "$state.new"
  $ ln -s target "$state.$emulator-0"
  $ ctl license new
  $ svcmgrctl license
  new
  $ ls "$KORVANE_DEVICE/service"
  state.json
  state.json.*-0 (glob)
  state.json.new
  $ rm "$state".*

A change that cannot be stored is not served:

  $ mv "$state" kept
  $ mkdir "$state"
  $ ctl license other
  svcmgr-emulator: cannot write */service/state.json: Is a directory (glob)
  [1]
  $ svcmgrctl license
  new
  $ svcmgrctl models update vision.detect 2>/dev/null | tail -n 1
  vision.detect (1/1): failed
  $ svcmgrctl models list | grep vision.detect
  vision.detect       1.0.0    Object detection
  $ ctl restart
  svcmgr-emulator: cannot read */service/state.json (glob)
  [1]
  $ svcmgrctl license
  new
  $ ls "$KORVANE_DEVICE/service"
  state.json
  $ rmdir "$state"

Neither is a file that contains no valid state:

  $ restart_with() { sed -z "$1" sound >"$state"; ctl restart; }
  $ restart_with 's/13/4294967309/'
  svcmgr-emulator: */service/state.json: 4294967309 is no 32-bit number (glob)
  [1]
  $ restart_with 's|com.korvane.device.speech|../speech|'
  svcmgr-emulator: */service/state.json: "../speech" is no agent (glob)
  [1]
  $ restart_with 's/"1.0.0",\s*"1.1.0",\s*"2.0.0"//'
  svcmgr-emulator: */service/state.json: model vision.detect has no version (glob)
  [1]
  $ restart_with 's/$/]/'
  svcmgr-emulator: */service/state.json: * (glob)
  [1]
  $ rm "$state"
  $ mkfifo "$state"
  $ ctl restart
  svcmgr-emulator: cannot read */service/state.json (glob)
  [1]
  $ rm "$state"

A list that is too long for a parcel is an error:

  $ long() { printf 's/%s/&%8388608s/;' "$1" ''; }
  $ { long 'Sample agents'; long 'Finds people'; } >insertions
  $ sed -f insertions sound >"$state"
  $ ctl restart
  $ svcmgrctl models list | grep vision.detect
  vision.detect       1.0.0    Object detection
  $ svcmgrctl models list --description
  svcmgrctl: SVCMGR_ERROR_INVALID_OPERATION (-38): the operation failed in a way that has no code of its own
  [1]
  $ svcmgrctl license
  svcmgrctl: SVCMGR_ERROR_NOT_CONNECTED (-107): the connection was lost, so there will be no answer; try again
  [1]
