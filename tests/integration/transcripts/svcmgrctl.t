svcmgrctl with a sample device, and with faults that the emulator simulates.

  $ ctl() { svcmgr-emulator ctl "$@" >/dev/null; }

Levels, licences and the connection:

  $ svcmgrctl client-level
  13
  $ svcmgrctl --json agent-level
  {"ok":true,"level":13}
  $ ctl license 'a "licence"'$'\001'
  $ svcmgrctl license --json
  {"ok":true,"license":"a \"licence\"\u0001"}
  $ ctl license $'red \033[31m, left \342\200\256, bell \a'
  $ LC_ALL=C.UTF-8 svcmgrctl license
  red \xef\xbf\xbd[31m, left \xef\xbf\xbd, bell \xef\xbf\xbd (esc)
  $ svcmgrctl connect --json
  {"ok":true,"connected":true}
  $ svcmgrctl watch --for 0.01 --json
  {"event":"connection","reported":true,"name":"SVCMGR_CONNECTION_CONNECTED","code":0,"meaning":"connected"}
  {"ok":true}
  $ svcmgrctl is-updating --json
  {"ok":true,"updating":false}
  $ KORVANE_LOG=debug svcmgrctl agent-level 2>&-
  13
  $ (mkfifo pipe && exec 4<>pipe 2>pipe 4>&- && KORVANE_LOG=debug exec svcmgrctl agent-level)
  13

Updates:

  $ svcmgrctl update
  update started
  update completed
  $ svcmgrctl update com.korvane.device.vision --json
  {"event":"update","name":"SVCMGR_UPDATE_STATUS_STARTED","code":0,"meaning":"update started"}
  {"event":"update","name":"SVCMGR_UPDATE_STATUS_COMPLETED","code":1,"meaning":"update completed"}
  {"ok":true}
  $ ctl fail-update 7
  $ svcmgrctl update com.korvane.device.speech
  update started
  update failed with failure code 7
  svcmgrctl: SVCMGR_UPDATE_STATUS_FAILED_CODE_7 (4): update failed with failure code 7
  [1]

Models:

  $ svcmgrctl models list
  ID                  VERSION  TITLE
  vision.detect       1.0.0    Object detection
  vision.segment      1.2.0    Segmentation
  language.translate  3.1.0    Translation
  language.summarize  0.8.0    Summaries
  speech.dictate      1.0.0    Dictation
  $ on_terminal() { script -qec "stty cols 80; $1" /dev/null </dev/null | tr -d '\r'; }
  $ on_terminal 'svcmgrctl models list --description' | head -n 3
  ID                  VERSION  TITLE             DESCRIPTION
  vision.detect       1.0.0    Object detection  Finds people, animals and things
                                                 in a picture.
  $ svcmgrctl models update vision.detect@2.0.0 --json | sed 2,5d
  {"event":"progress","model":"vision.detect@2.0.0","result":0,"state":17,"index":0,"count":1,"percentage":0}
  {"event":"progress","model":"vision.detect@2.0.0","result":0,"state":20,"index":0,"count":1,"percentage":100}
  {"ok":true}
  $ ctl restart
  $ svcmgrctl models list --category vision
  ID              VERSION  TITLE
  vision.detect   2.0.0    Object detection
  vision.segment  1.2.0    Segmentation
  $ svcmgrctl models versions vision.segment --json | grep -o '"version":"[^"]*"'
  "version":"1.2.0"
  "version":"1.3.0"
  $ svcmgrctl models update vision.detect@1.0.0 vision.detect@2.0.0 | tail -n 3
  vision.detect@2.0.0 (2/2): 100 %
  vision.detect@1.0.0 (1/2): completed
  vision.detect@2.0.0 (2/2): completed
  $ svcmgrctl models uninstall vision.segment
  vision.segment (1/1): started
  vision.segment (1/1): 25 %
  vision.segment (1/1): 50 %
  vision.segment (1/1): 75 %
  vision.segment (1/1): 100 %
  vision.segment (1/1): completed
  $ svcmgrctl models uninstall vision.segment >/dev/null
  svcmgrctl: SVCMGR_ERROR_INVALID_OPERATION (-38): vision.segment is not installed
  [1]

What the service manager refuses, or does not answer:

  $ ctl fail-models 4
  $ svcmgrctl models uninstall speech.dictate 2>/dev/null | tail -n 1
  speech.dictate (1/1): failed
  $ svcmgrctl models uninstall speech.dictate 2>/dev/null | tail -n 1
  speech.dictate (1/1): completed
  $ ctl reply get_agent_api_level -1
  $ svcmgrctl agent-level --json
  {"ok":false,"command":"agent-level","error":{"name":"SVCMGR_ERROR_INVALID_API_LEVEL","code":-1073741825,"meaning":"the agent API level could not be obtained"}}
  [1]
  $ ctl reply get_agent_api_level default
  $ ctl reply request_update -13
  $ svcmgrctl update
  svcmgrctl: SVCMGR_ERROR_PERMISSION_DENIED (-13): the platform or the service manager denies it
  [1]
  $ ctl stray 3
  $ svcmgrctl agent-level
  13
  $ ctl license SVCMGR_ERROR_QEL_DISABLED
  $ svcmgrctl license
  svcmgrctl: SVCMGR_ERROR_QEL_DISABLED (-1073741826): the QEL scheme is disabled on the device
  [1]
  $ ctl silent GetUsableModelList
  $ svcmgrctl models list --timeout 0.05
  svcmgrctl: TIMEOUT (-110): the service manager did not answer within the time limit (see --timeout)
  [1]
  $ ctl silent off
  $ ctl reject on
  $ svcmgrctl agent-level
  svcmgrctl: SVCMGR_ERROR_PERMISSION_DENIED (-13): the service manager refuses the connection; an emulator accepts it after "svcmgr-emulator ctl reject off"
  [1]
  $ ctl reject off

Completion:

  $ . "$SOURCES/tools/command_line/completion.bash"
  $ compopt() { echo "compopt $*"; }
  $ complete_line() { COMP_LINE=$1 COMP_POINT=${#1}; _korvane_complete "${1%% *}" "$2"; printf '%s\n' "${COMPREPLY[@]}"; }
  $ complete_line 'svcmgrctl --json mo' mo
  models
  $ complete_line 'svcmgrctl models update vision.d' vision.d
  compopt -o nospace
  vision.detect
  $ complete_line 'svcmgrctl models update vision.detect@' ''
  1.0.0
  1.1.0
  2.0.0
  $ complete_line 'svcmgrctl license ' ''
  
  $ mkdir -p folder && touch file
  $ complete_line 'svcmgrctl --device f' f
  compopt -o filenames
  folder
  $ complete_line 'svcmgr-emulator run -- svcmgr-em' svcmgr-em
  compopt -o filenames
  svcmgr-emulator
  $ complete_line 'svcmgr-emulator run -- cat f' f | sort
  compopt -o filenames
  file
  folder

Messages that say what is wrong, and what to do:

  $ svcmgrctl
  svcmgrctl: no command; choose one of help, connect, client-level, agent-level, license, update, is-updating, watch, models
  Run "svcmgrctl --help" for more.
  [2]
  $ svcmgrctl agent-level --jsn=1
  svcmgrctl: unknown option "--jsn"; did you mean "--json"?
  Run "svcmgrctl agent-level --help" for more.
  [2]
  $ svcmgrctl agent-level --timeout soon
  svcmgrctl: --timeout: "soon" is no number of seconds from 0 to 1000000
  Run "svcmgrctl agent-level --help" for more.
  [2]
  $ svcmgrctl update nosuch
  svcmgrctl: NO_AGENT (-2): no agent "nosuch" is installed on *; installed: com.korvane.device.language, com.korvane.device.speech, com.korvane.device.vision (glob)
  [1]
  $ svcmgrctl models update vision.detct >/dev/null
  svcmgrctl: SVCMGR_ERROR_INVALID_OPERATION (-38): the service manager has no model "vision.detct"; did you mean "vision.detect"?
  [1]
  $ svcmgrctl models update vision.detect@9 >/dev/null
  svcmgrctl: SVCMGR_ERROR_INVALID_OPERATION (-38): vision.detect has no version "9"; available: 1.0.0, 1.1.0, 2.0.0
  [1]
  $ svcmgrctl models versions $'\377\033' --json
  {"ok":false,"command":"models versions","error":{"name":"SVCMGR_ERROR_INVALID_OPERATION","code":-38,"meaning":"the service manager has no model \"\ufffd\u001b\"; \"svcmgrctl models list\" shows the available ones"}}
  [1]
  $ svcmgrctl agent-level --app com.example.viewr
  svcmgrctl: NO_APPLICATION (-2): no application "com.example.viewr" is installed on *; did you mean "com.example.viewer"? (glob)
  [1]
  $ svcmgrctl agent-level --device none
  svcmgrctl: NO_DEVICE (-2): none is no device directory; "svcmgr-emulator --device none --init" makes a sample one
  [1]
  $ ctl stop
  $ svcmgrctl agent-level
  svcmgrctl: SVCMGR_ERROR_CONNECTION_FAILED (-1): no service manager runs on *; start one with "svcmgr-emulator --device *" (glob)
  [1]
  $ env -u KORVANE_APP_ID svcmgrctl agent-level
  svcmgrctl: --app ID (or $KORVANE_APP_ID) is required; installed applications: com.example.viewer
  Run "svcmgrctl agent-level --help" for more.
  [2]

Shells and scripts:

  $ svcmgrctl -V
  svcmgrctl *.*.* (glob)
  $ svcmgrctl help models update | sed -n '2,5p; /--app/p'
  Usage: svcmgrctl models update [OPTION...] ID[@VERSION]...
  
  Arguments:
    ID[@VERSION]                    The models; without a version, the newest one
    --app ID                        Application to call as (default: $KORVANE_APP_ID)
  $ svcmgrctl help model
  svcmgrctl: unknown command "model"; did you mean "models"?
  Run "svcmgrctl --help" for more.
  [2]
  $ for request in --help -V help; do svcmgrctl $request 2>&1 >/dev/full || echo $?; done | sort | uniq -c
        3 1
        3 svcmgrctl: the output could not be written
