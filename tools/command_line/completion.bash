# Completion for svcmgrctl and svcmgr-emulator, which know best what they understand.
_korvane_complete() {
  mapfile -t COMPREPLY < <("$1" --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
}
complete -o default -F _korvane_complete svcmgrctl svcmgr-emulator
