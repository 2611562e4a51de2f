# What the shell tests begin with: a folder that goes with the test, and a way to say what failed.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }
