#!/usr/bin/env bash
# Checks the marker section of library files: 16 bytes, PROGBITS, no flags, alignment 1, its contents,
# and that nothing but the section-name table stands behind it.
#   marker_section_test.sh LIBRARY…
. "$(dirname "$0")/support.sh"

for file in "$@"; do
  readelf -SW "$file" | sed -n 's/^ *\[ *[0-9]*\] //p' >"$work/sections"
  tail -n 2 "$work/sections" | head -n 1 | grep -qE '^\.qel +PROGBITS +0+ [0-9a-f]+ 0+10 00 +0 +0 +1$' ||
    fail "marker section of $file: $(tail -n 2 "$work/sections")"
  tail -n 1 "$work/sections" | grep -q '^\.shstrtab' || fail "marker is not last in $file"
  # Read where the section table says, so that files of any processor can be checked.
  offset=$(awk '$1 == ".qel" { print $4 }' "$work/sections")
  contents=$(od -An -v -tx1 -j "0x$offset" -N 16 "$file" | tr -d ' \n')
  [ "$contents" = 51454c00000001000d00030000009a00 ] || fail "marker contents of $file: $contents"
done
