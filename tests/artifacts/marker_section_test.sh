#!/usr/bin/env bash
# The marker section of library files: 16 bytes, PROGBITS, no flags, alignment 1, its contents. Only
# the table of section names follows it.
#   marker_section_test.sh LIBRARY…
. "$(dirname "$0")/support.sh"

for file in "$@"; do
  readelf -SW "$file" | sed -n 's/^ *\[ *[0-9]*\] //p' >"$work/sections"
  tail -n 2 "$work/sections" | head -n 1 | grep -qE '^\.qel +PROGBITS +0+ [0-9a-f]+ 0+10 00 +0 +0 +1$' ||
    fail "marker section of $file: $(tail -n 2 "$work/sections")"
  tail -n 1 "$work/sections" | grep -q '^\.shstrtab' || fail "marker is not last in $file"
  # Read at the offset in the section table, which works with files for any processor.
  offset=$(awk '$1 == ".qel" { print $4 }' "$work/sections")
  contents=$(od -An -v -tx1 -j "0x$offset" -N 16 "$file" | tr -d ' \n')
  [ "$contents" = 51454c00000001000d00030000009a00 ] || fail "marker contents of $file: $contents"
done
