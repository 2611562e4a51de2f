#!/usr/bin/env bash
# Compares the library's binary interface with the kept one: what is kept must still be there as it
# was; what is new is fine. The functions and the types of their parameters are told by the debug
# information of the library, the values of the constants by the header.
#   CC=… binary_interface_test.sh LIBRARY HEADER KEPT_FOLDER
#   CC=… binary_interface_test.sh LIBRARY HEADER KEPT_FOLDER --keep    takes the present one as kept
set -euo pipefail
library=$1 header=$2 kept=$3
headers=$(dirname "$header")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }

# A program that prints every enumerator of the header with its value.
{
  printf '#include <stdio.h>\n#include "%s"\nint main(void) {\n' "$header"
  sed -nE 's/^  (SVCMGR_[A-Z0-9_]+)( =.*|,)?$/printf("%s %d\\n", "\1", (int)\1);/p' "$header"
  printf '}\n'
} >"$work/constants.c"
"$CC" "$work/constants.c" -o "$work/print_constants"
"$work/print_constants" | LC_ALL=C sort >"$work/constants"
[ -s "$work/constants" ] || fail "no constants in $header"

if [ "${4:-}" = --keep ]; then
  cp "$work/constants" "$kept/constants"
  abidw --exported-interfaces-only --headers-dir "$headers" --drop-private-types \
    --drop-undefined-syms --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed \
    --no-architecture --no-parameter-names --type-id-style hash --out-file "$kept/functions.abi" "$library"
  exit
fi

[ -z "$(LC_ALL=C comm -23 "$kept/constants" "$work/constants")" ] ||
  fail "constants removed or changed: $(LC_ALL=C comm -23 "$kept/constants" "$work/constants")"
abidiff --exported-interfaces-only --headers-dir2 "$headers" --no-architecture --no-added-syms \
  "$kept/functions.abi" "$library" || fail "functions removed or changed"
