#!/usr/bin/env bash
# Records the binary interface of the library: the values of the constants in the header, and the
# functions with the types of their parameters from the debug information of the library.
#   CC=… keep.sh LIBRARY HEADER
set -euo pipefail
library=$1 header=$2
kept=$(dirname "$0")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

{
  printf '#include <stdio.h>\n#include "%s"\nint main(void) {\n' "$header"
  sed -nE 's/^  (SVCMGR_[A-Z0-9_]+)( =.*|,)?$/printf("_Static_assert(\1 == %d, \\"\1\\");\\n", (int)\1);/p' "$header"
  printf '}\n'
} >"$work/print.c"
"$CC" "$work/print.c" -o "$work/print"
{
  printf '#include "%s"\n\n' "${header##*/}"
  "$work/print" | LC_ALL=C sort
} >"$kept/constants.c"

abidw --exported-interfaces-only --headers-dir "$(dirname "$header")" --drop-private-types \
  --drop-undefined-syms --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed \
  --no-architecture --no-parameter-names --type-id-style hash --out-file "$kept/functions.abi" "$library"
