The emulator's own command line.

  $ device=$KORVANE_DEVICE
  $ ctl() { svcmgr-emulator ctl "$@"; }

Messages that say what is wrong:

  $ svcmgr-emulator
  svcmgr-emulator: another emulator runs on *; "svcmgr-emulator ctl stop" ends it (glob)
  [1]
  $ svcmgr-emulator --init
  svcmgr-emulator: * is a device already (glob)
  [1]
  $ svcmgr-emulator --init --device "$device/service"
  svcmgr-emulator: */service contains other files; choose a new or empty folder (glob)
  [1]
  $ svcmgr-emulator --device none
  svcmgr-emulator: */none is no device directory; --init makes a sample one (glob)
  [1]
  $ svcmgr-emulator --tick never
  svcmgr-emulator: --tick: "never" is no number of milliseconds from 0 to 60000
  Run "svcmgr-emulator --help" for more.
  [2]
  $ env -u KORVANE_DEVICE svcmgr-emulator ctl restart
  svcmgr-emulator: --device DIR (or $KORVANE_DEVICE) is required
  Run "svcmgr-emulator ctl --help" for more.
  [2]
  $ svcmgr-emulator run bash -c 'exit 3'
  svcmgr-emulator: unknown option "-c"
  Run "svcmgr-emulator run --help" for more.
  A command that has options follows "--": svcmgr-emulator run -- COMMAND...
  [2]
  $ ctl --device none status
  svcmgr-emulator: no emulator runs on */none; start one with "svcmgr-emulator --device */none" (glob)
  [1]
  $ ctl statsu
  svcmgr-emulator: unknown word "statsu"; did you mean "status"?
  Run "svcmgr-emulator ctl --help" for more.
  [2]
  $ ctl reply get_agent_api_level
  svcmgr-emulator: use reply METHOD CODE|default
  Run "svcmgr-emulator ctl --help" for more.
  [2]
  $ ctl stray 4294967297
  svcmgr-emulator: "4294967297" is no 32-bit number
  [2]
  $ ctl garbage main soup
  svcmgr-emulator: unknown word "soup"; choose one of half-frame, oversized, rubbish, empty
  Run "svcmgr-emulator ctl --help" for more.
  [2]
  $ word=k=str:$(head -c 120000 /dev/zero | tr '\0' '\001')  # each letter is six in the message
  $ ctl event agent_status "$word" "$word" "$word" "$word" "$word" "$word" "$word" "$word" "$word" "$word" "$word" "$word"
  svcmgr-emulator: the command is too long
  [1]
  $ echo '{' >"$device/packages/com.korvane.device.svcmgr.json"
  $ ctl stop
  $ svcmgr-emulator 2>&1 | sed "s|$device|DEVICE|"
  svcmgr-emulator: DEVICE/packages/com.korvane.device.svcmgr.json, the package of the service manager, is damaged

  $ (ulimit -f 0; env --ignore-signal=XFSZ svcmgr-emulator --init --device other)
  svcmgr-emulator: cannot write */other/* (glob)
  [1]
  $ test -e other
  [1]
  $ svcmgr-emulator --init --device other >/dev/null
  $ mkdir other/run/emulator.lock
  $ svcmgr-emulator --device other
  svcmgr-emulator: cannot lock */other/run/emulator.lock: Is a directory (glob)
  [1]
  $ rmdir other/run/emulator.lock

A shell can read the output of --init:

  $ svcmgr-emulator --init --device "it's new" >lines
  $ cat lines
  export KORVANE_DEVICE='*/it'\''s new' (glob)
  export KORVANE_APP_ID='com.example.viewer'
  $ (. ./lines && ls "$KORVANE_DEVICE/apps")
  com.example.viewer

Output that cannot be written goes to no other file. It is a failure of a command that prints:

  $ exec 3< <(svcmgr-emulator --trace --device other 2>&-)
  $ read -r -t 60 -u 3
  $ ctl --device other announce Launch
  $ ctl --device other stop
  $ wc -c <other/run/emulator.lock
  0
  $ svcmgr-emulator run --device other -- svcmgr-emulator ctl status >/dev/full
  svcmgr-emulator: the output could not be written
  [1]
  $ svcmgr-emulator --version >&-
  svcmgr-emulator: the output could not be written
  [1]

Control characters in the text of a client are escaped:

  $ app=$'\e[2J\x7f\xc2\x9bm\xe2\x80\xae\xe2\x81\xa6'  # with U+009B, U+202E and U+2066
  $ echo '{"version": "1", "metadata": {}}' >"other/packages/$app.json"
  $ watch='svcmgrctl --app "$0" watch & until svcmgr-emulator ctl status | grep app_id; do :; done; kill $!; wait'
  $ svcmgr-emulator run --device other --trace -- sh -c "$watch" "$app" 2>&1 | grep -ao '\(accepted\|app_id\).*"'
  accepted "\u001b[2J\u007f\u009bm\u202e\u2066"
  app_id": "\u001b[2J\u007f\u009bm\u202e\u2066"

A command beside a service manager that runs as long as the command:

  $ unset KORVANE_DEVICE KORVANE_APP_ID
  $ export TMPDIR=$PWD/temporary
  $ mkdir temporary
  $ svcmgr-emulator run -- sh -c 'svcmgrctl update && exit 7'
  update started
  update completed
  [7]
  $ svcmgr-emulator run -- no-such-command
  svcmgr-emulator: no-such-command: No such file or directory
  [127]
  $ svcmgr-emulator run -- sh -c 'kill $PPID; exec sleep 600'
  [143]
  $ for signal in HUP INT QUIT USR1 USR2 ALRM PIPE XCPU; do
  >   svcmgr-emulator run -- sh -c 'kill -$0 $PPID; exec sleep 600' "$signal" || echo -n "$? "
  > done; echo
  129 130 131 138 140 142 141 152 
  $ env --ignore-signal=CHLD svcmgr-emulator run -- svcmgrctl agent-level
  13
  $ TMPDIR=temporary svcmgr-emulator run -- sh -c 'cd / && svcmgrctl agent-level'
  13
  $ svcmgr-emulator run -- sh -c 'kill -STOP $(svcmgr-emulator ctl status | sed -n "s/.*\"pid\": \([0-9]*\).*/\1/p")'
  $ script --quiet --command 'exec svcmgr-emulator run -- sh -c "echo >running; exec sleep 600"' /dev/null >/dev/null </dev/null &
  $ until [ -e running ]; do :; done
  $ disown
  $ kill -KILL $!  # its terminal is closed
  $ until [ -z "$(ls temporary)" ]; do :; done
  $ ls temporary

One command takes all faults back:

  $ svcmgr-emulator run -- bash <<'END'
  > svcmgrctl license >first
  > svcmgr-emulator ctl license one
  > svcmgr-emulator ctl license two
  > svcmgr-emulator ctl reply get_agent_api_level 5
  > svcmgr-emulator ctl reset
  > svcmgrctl license | cmp - first
  > svcmgrctl agent-level
  > END
  13

Help, for people and for shells:

  $ svcmgr-emulator -V
  svcmgr-emulator *.*.* (glob)
  $ svcmgr-emulator help run | sed -n 2p
  Usage: svcmgr-emulator run [OPTION...] -- COMMAND...
  $ svcmgr-emulator help ctl stop
    stop
          stop the emulator, and wait until it has exited
  $ svcmgr-emulator --complete ctl reply request_update_
  request_update_with_list
  $ svcmgr-emulator --complete ctl reply get_license ''
  default
