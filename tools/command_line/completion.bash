# Completion for svcmgrctl and svcmgr-emulator. The programs compute the candidates themselves.
_korvane_complete() {
  # Bash splits words at some characters that are part of them, such as "@".
  local line=${COMP_LINE:0:COMP_POINT} word words
  read -ra words <<<"$line"
  [[ $line == *[[:blank:]] ]] && words+=('')
  local before=${words[-1]%"$2"}
  COMPREPLY=()
  while read -r word; do
    case $word in
      "-o "*) compopt $word ;;
      "-A "*)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen $word -- "$2")
        ;;
      *) COMPREPLY+=("${word#"$before"}") ;;
    esac
  done < <("$1" --complete "${words[@]:1}" 2>/dev/null)
}
complete -F _korvane_complete svcmgrctl svcmgr-emulator
