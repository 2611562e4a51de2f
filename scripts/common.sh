# shellcheck shell=bash
# Functions shared by the scripts. A script sources this file first, so that --help is handled before
# anything else. The help text is the comment at the top of the script.
set -euo pipefail
script=$(realpath "$0")
cd "$(dirname "$script")/.."

help() { sed -n '2,/^[^#]/ s/^# \{0,1\}//p' "$script"; }
fail() { echo "${script##*/}: $*" >&2; exit 1; }
usage_error() { { echo "${script##*/}: $*"; help; } >&2; exit 2; }

for word in "$@"; do
  case $word in -h | --help) help; exit 0 ;; esac
done

# Rejects an option that the help text does not list.
check_options() {
  for word in "$@"; do
    case $word in -*) help | grep -qe "^${word%%=*} " || usage_error "unknown option $word" ;; esac
  done
}

# Prints the time of the previous step and the name of the next one.
step() {
  end_step
  step=$* step_begin=$SECONDS
  echo "== $step"
}
end_step() {
  [ -z "${step:-}" ] || echo "== $step (${1:-}$((SECONDS - step_begin)) s)"
  step=
}

# Called at exit. A script that has something to clean up redefines it.
clean_up() { :; }
at_exit() {
  local status=$?
  clean_up
  if [ $status -eq 0 ]; then end_step; else end_step "failed after " >&2; fi
}
trap at_exit EXIT
