#!/usr/bin/env bash
# Compares the binary interface of the library with the recorded one: recorded functions and types are
# unchanged; new ones are accepted.
#   CC=… binary_interface_test.sh LIBRARY HEADER RECORD_FOLDER
set -euo pipefail
library=$1 header=$2 kept=$3
"$CC" -fsyntax-only -I "$(dirname "$header")" "$kept/constants.c"
abidiff --exported-interfaces-only --headers-dir2 "$(dirname "$header")" --no-architecture \
  --no-added-syms "$kept/functions.abi" "$library"
