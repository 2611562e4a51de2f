# messages COMMAND: runs a command beside an emulator on the folder "device", and prints what the
# emulator sends because of the command's first request: answers, reports of progress (of a model
# the first and the last), and events.
messages() {
  # The emulator answers the last event when it has traced all before.
  svcmgr-emulator run --device device --tick 0 --trace -- \
    sh -c "{ $1; } >/dev/null 2>&1; svcmgr-emulator ctl event model_status End=str:" 2>&1 |
    awk '/^<-/ { ++requests } requests == 1 && !/"End"|percentage=(25|50|75)}/' |
    sed -nE 's/.*(code=|_status )(.*)/\1\2/; s/ to [0-9]+ subscribers?//; /^(code|_status)/p'
}
