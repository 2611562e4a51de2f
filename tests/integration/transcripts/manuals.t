The manuals name every command and option that the programs offer.

  $ export KORVANE_DEVICE=/no/agents/nor/models/that/would/be/offered
  $ words() { "$@" | grep -v '^-A '; }
  $ missing() {
  >   local manual=$1 word; shift
  >   for word in $(words "$1" --complete "${@:2}" --) $(words "$1" --complete "${@:2}" ''); do
  >     grep -qF -- "$word" "$manual" || echo "$* $word"
  >     [[ $word = -* || $# -gt 2 ]] || missing "$manual" "$@" "$word"
  >   done
  > }
  $ missing "$SOURCES/tools/svcmgrctl/svcmgrctl.1.scd" svcmgrctl
  $ missing "$SOURCES/emulator/svcmgr-emulator.1.scd" svcmgr-emulator
