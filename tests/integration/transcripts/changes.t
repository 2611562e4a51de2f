What applications are told while the service manager changes models and agents.

  $ export KORVANE_APP_ID=com.example.viewer
  $ svcmgr-emulator --device device --init >/dev/null
  $ emulator() { svcmgr-emulator run --device device --tick 0 --trace -- sh -c "{ $1; } >/dev/null 2>&1; svcmgr-emulator ctl event model_status End=str:" 2>&1; }
  $ told() { emulator "$1" | awk '/^<-/ { ++requests } requests == 1' | sed -nE '/"End"/d; s/.*(_status .*) to .*|.*(code=.*)/\1\2/p'; }

Models:

  $ told 'svcmgrctl models update vision.detect@2.0.0 vision.segment'
  code=0 progress={state=17 index=0 count=2 percentage=0}
  _status "START"="started"
  code=0 progress={state=17 index=0 count=2 percentage=25}
  code=0 progress={state=17 index=0 count=2 percentage=50}
  code=0 progress={state=17 index=0 count=2 percentage=75}
  code=0 progress={state=17 index=0 count=2 percentage=100}
  code=0 progress={state=17 index=1 count=2 percentage=25}
  code=0 progress={state=17 index=1 count=2 percentage=50}
  code=0 progress={state=17 index=1 count=2 percentage=75}
  code=0 progress={state=17 index=1 count=2 percentage=100}
  code=0 progress={state=20 index=1 count=2 percentage=100}
  _status "COMPLETED"="completed"
  $ told 'svcmgrctl models uninstall speech.dictate'
  code=0 progress={state=17 index=0 count=1 percentage=0}
  _status "START"="started"
  code=0 progress={state=17 index=0 count=1 percentage=25}
  code=0 progress={state=17 index=0 count=1 percentage=50}
  code=0 progress={state=17 index=0 count=1 percentage=75}
  code=0 progress={state=17 index=0 count=1 percentage=100}
  code=0 progress={state=20 index=0 count=1 percentage=100}
  _status "COMPLETED"="completed"
  $ told 'svcmgr-emulator ctl fail-models 4; svcmgrctl models uninstall vision.detect'
  code=0 progress={state=17 index=0 count=1 percentage=0}
  _status "START"="started"
  code=4 progress={state=24 index=0 count=1 percentage=0}
  _status "FAILED"="failed"
  $ told 'svcmgr-emulator ctl reply RequestToUninstall 4; svcmgrctl models uninstall vision.detect'
  code=4 progress={state=24 index=0 count=1 percentage=0}
  $ told 'svcmgrctl models list --category vision'
  code=0 models=[{"vision.detect" "2.0.0" "Object detection" ""}, {"vision.segment" "1.3.0" "Segmentation" ""}] count=2
  $ told 'svcmgrctl models list' | grep -o '{"[^"]*'
  {"vision.detect
  {"vision.segment
  {"language.translate
  {"language.summarize
  $ echo '{"id": "other", "version": "1", "metadata": {}}' >device/packages/other.json
  $ KORVANE_APP_ID=other told 'svcmgrctl models list' | grep -o '{"[^"]*'
  {"vision.detect
  {"vision.segment
  {"language.translate
  $ told 'svcmgr-emulator ctl reply GetUsableModelList 4; svcmgrctl models list'
  code=4 models=[] count=0

What cannot be changed:

  $ told 'svcmgrctl models uninstall speech.dictate'
  code=0 progress={state=17 index=0 count=1 percentage=0}
  _status "START"="started"
  code=4 progress={state=24 index=0 count=1 percentage=0}
  _status "FAILED"="failed"
  $ told 'svcmgrctl models update none'
  code=0 progress={state=17 index=0 count=1 percentage=0}
  _status "START"="started"
  code=4 progress={state=24 index=0 count=1 percentage=0}
  _status "FAILED"="failed"
  $ told 'svcmgrctl models update vision.detect@9'
  code=0 progress={state=17 index=0 count=1 percentage=0}
  _status "START"="started"
  code=4 progress={state=24 index=0 count=1 percentage=0}
  _status "FAILED"="failed"
  $ told 'svcmgrctl models versions none'
  code=4 models=[] count=0

Agents:

  $ told 'svcmgrctl update com.korvane.device.speech'
  code=0
  _status "Start"=["com.korvane.device.speech"]
  _status "com.example.viewer"=bytes:00000000
  _status "Complete"="updated"
  $ grep -h '"version"' device/packages/*
    "version": "1.0.0",
    "version": "1.4.0",
    "version": "1.0.0",
    "version": "2.4.1",
    "version": "2.1.0",
  {"id": "other", "version": "1", "metadata": {}}
  $ told 'svcmgr-emulator ctl fail-update 7; svcmgrctl update'
  code=0
  _status "Start"=["com.korvane.device.language", "com.korvane.device.speech", "com.korvane.device.vision"]
  _status "Fail"=bytes:07000000
  $ told 'svcmgr-emulator ctl reply request_update -13; svcmgrctl update'
  code=-13
  $ told 'svcmgrctl update'
  code=0
  _status "Start"=["com.korvane.device.language", "com.korvane.device.speech", "com.korvane.device.vision"]
  _status "com.example.viewer"=bytes:00000000
  _status "Complete"="updated"
  $ grep -h '"version"' device/packages/*
    "version": "1.0.0",
    "version": "1.4.0",
    "version": "1.0.0",
    "version": "2.4.1",
    "version": "2.2.0",
  {"id": "other", "version": "1", "metadata": {}}
  $ echo '[]' >device/packages/com.korvane.device.speech.json
  $ told 'svcmgrctl update'
  code=0
  _status "Start"=["com.korvane.device.language", "com.korvane.device.speech", "com.korvane.device.vision"]
  _status "Fail"=bytes:01000000
