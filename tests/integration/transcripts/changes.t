What applications receive when models and agents change.

  $ . "$SOURCES/tests/integration/transcripts/messages.sh"
  $ export KORVANE_APP_ID=com.example.viewer
  $ svcmgr-emulator --device device --init >/dev/null

Models:

  $ messages 'svcmgrctl models update vision.detect@2.0.0 vision.segment'
  code=0 progress={state=17 index=0 count=2 percentage=0}
  _status "START"="started"
  code=0 progress={state=17 index=0 count=2 percentage=100}
  code=0 progress={state=17 index=1 count=2 percentage=100}
  code=0 progress={state=20 index=1 count=2 percentage=100}
  _status "COMPLETED"="completed"
  $ messages 'svcmgrctl models uninstall speech.dictate'
  code=0 progress={state=17 index=0 count=1 percentage=0}
  _status "START"="started"
  code=0 progress={state=17 index=0 count=1 percentage=100}
  code=0 progress={state=20 index=0 count=1 percentage=100}
  _status "COMPLETED"="completed"
  $ messages 'svcmgr-emulator ctl fail-models 4; svcmgrctl models uninstall vision.detect'
  code=0 progress={state=17 index=0 count=1 percentage=0}
  _status "START"="started"
  code=4 progress={state=24 index=0 count=1 percentage=0}
  _status "FAILED"="failed"
  $ messages 'svcmgr-emulator ctl reply RequestToUninstall 4; svcmgrctl models uninstall vision.detect'
  code=4 progress={state=24 index=0 count=1 percentage=0}
  $ messages 'svcmgrctl models list --category vision'
  code=0 models=[{"vision.detect" "2.0.0" "Object detection" ""}, {"vision.segment" "1.3.0" "Segmentation" ""}] count=2
  $ messages 'svcmgr-emulator ctl reply GetUsableModelList 4; svcmgrctl models list'
  code=4 models=[] count=0

A model may be for certain applications only:

  $ messages 'svcmgrctl models list' | grep -c summarize
  1
  $ echo '{"id": "other", "version": "1", "metadata": {}}' >device/packages/other.json
  $ KORVANE_APP_ID=other messages 'svcmgrctl models list' | grep -c summarize
  0
  [1]

Agents:

  $ messages 'svcmgrctl update com.korvane.device.speech'
  code=0
  _status "Start"=["com.korvane.device.speech"]
  _status "com.example.viewer"=bytes:00000000
  _status "Complete"="updated"
  $ messages 'svcmgr-emulator ctl fail-update 7; svcmgrctl update'
  code=0
  _status "Start"=["com.korvane.device.language", "com.korvane.device.speech", "com.korvane.device.vision"]
  _status "Fail"=bytes:07000000
  $ messages 'svcmgr-emulator ctl reply request_update -13; svcmgrctl update'
  code=-13
  $ grep -ho '"version": "2.[1-9].*"' device/packages/*
  "version": "2.4.1"
  "version": "2.1.0"
  $ messages 'svcmgrctl update' >/dev/null
  $ grep -ho '"version": "2.[1-9].*"' device/packages/*
  "version": "2.4.1"
  "version": "2.2.0"
  $ echo '[]' >device/packages/com.korvane.device.speech.json
  $ messages 'svcmgrctl update' | tail -n 1
  _status "Fail"=bytes:01000000
