The examples, and the first program of the guide.

  $ snippet_agent_level
  result 0, agent API level 13
  $ svcmgr-emulator ctl reply get_agent_api_level -1
  $ snippet_agent_level
  result -1073741825, agent API level 0
  [1]
  $ svcmgr-emulator ctl reply get_agent_api_level default
  $ snippet_list_models | head -n 1
  vision.detect
  $ snippet_first_program | head -n 1
  vision.detect
  $ example_models_c | tee output | grep -v language
  vision.detect 1.0.0
  vision.segment 1.2.0
  speech.dictate 1.0.0
  0 %
  25 %
  50 %
  75 %
  100 %
  100 %
  vision.detect 2.0.0
  vision.segment 1.2.0
  speech.dictate 1.0.0
  $ svcmgrctl models update vision.detect@1.0.0 >/dev/null
  $ example_models_cpp | diff output -
  $ svcmgr-emulator ctl reply RequestToUpdate 5
  $ for example in example_models_c example_models_cpp; do $example >/dev/null; done
  update: the service manager has no space left
  update: the service manager has no space left
  [1]
  $ env -u KORVANE_APP_ID example_models_c 2>&1 | grep HOST
  E/KORVANE_HOST: KORVANE_APP_ID is not set
  $ svcmgr-emulator ctl stop
  $ for example in example_models_c example_models_cpp; do KORVANE_LOG=none $example; done
  connect: the connection could not be started; the service manager does not run
  connect: the connection could not be started; the service manager does not run
  [1]

Without a device:

  $ env -u KORVANE_DEVICE snippet_agent_level 2>&1 | grep HOST
  E/KORVANE_HOST: KORVANE_DEVICE is not set
  $ KORVANE_DEVICE=/no/such snippet_agent_level 2>&1 | grep HOST
  E/KORVANE_HOST: KORVANE_DEVICE names no device directory: /no/such

An unknown level of the log:

  $ KORVANE_LOG=foo snippet_agent_level 2>&1 | head -n 1
  E/KORVANE_HOST: KORVANE_LOG is "foo", not debug, info, error or none

A log line that is cut on a terminal ends its colour:

  $ export KORVANE_LOG=info KORVANE_DEVICE=/$(printf %09000d 0)
  $ script -qec snippet_agent_level /dev/null </dev/null | grep -a HOST | head -n 1 | tail -c 7 | cat -v
  0^[[0m^M
