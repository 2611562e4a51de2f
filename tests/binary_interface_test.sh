#!/usr/bin/env bash
# Compares the library's binary interface with the kept one: what is kept must still be there as it
# was; what is new is fine.
#   CC=… binary_interface_test.sh LIBRARY HEADER KEPT_FOLDER
set -euo pipefail
library=$1 header=$2 kept=$3
"$CC" -fsyntax-only -I "$(dirname "$header")" "$kept/constants.c"
abidiff --exported-interfaces-only --headers-dir2 "$(dirname "$header")" --no-architecture \
  --no-added-syms "$kept/functions.abi" "$library"
