# Read by the tests in this folder: a temporary folder $work, and a function that reports a failure.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }
