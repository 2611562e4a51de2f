# shellcheck shell=bash
# Functions shared by the scripts. A script reads this file first, so that help and usage errors
# come before anything else. The help is the comment at the head of the script.
set -euo pipefail
script=$(realpath "$0")
cd "$(dirname "$script")/.."

help() { sed -n '2,/^[^#]/ s/^# \{0,1\}//p' "$script"; }
fail() { echo "${script##*/}: $*" >&2; exit 1; }
usage_error() { { echo "${script##*/}: $*"; help; } >&2; exit 2; }

for word in "$@"; do
  case $word in -h | --help) help; exit 0 ;; esac
done

# Every option must stand in the help.
check_options() {
  for word in "$@"; do
    case $word in -*) help | grep -qe "^${word%%=*} " || usage_error "unknown option $word" ;; esac
  done
}

# Announces a step, after the time of the previous one.
step() {
  end_step
  step=$* step_begin=$SECONDS
  echo "== $step"
}
end_step() {
  [ -z "${step:-}" ] || echo "== $step (${1:-}$((SECONDS - step_begin)) s)"
  step=
}

# A script that needs cleaning up at its end defines clean_up.
clean_up() { :; }
at_exit() {
  local status=$?
  clean_up
  if [ $status -eq 0 ]; then end_step; else end_step "failed after " >&2; fi
}
trap at_exit EXIT
