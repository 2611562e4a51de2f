#!/usr/bin/env bash
# Checks the built library file and an installed, stripped copy of it.
#   library_file_test.sh LIBRARY HEADER BUILD_FOLDER
set -euo pipefail
library=$1 header=$2 build=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }

# Exported is what the header declares, and nothing else.
grep -o 'korvane_svcmgr_[a-z_]*(' "$header" | tr -d '(' | sort -u |
  while read -r name; do grep -q "SVCMGR_API int $name(" "$header" && echo "$name"; done >"$work/declared"
nm -D --defined-only "$library" | awk '{ print $NF }' | sort >"$work/exported"
[ -s "$work/declared" ] || fail "no function found in $header"
diff "$work/declared" "$work/exported" || fail "exported names differ from the header"

readelf -d "$library" | grep -q 'SONAME.*\[libkorvane-svcmgr\.so\.1\]' || fail "soname"
if readelf -d "$library" | grep NEEDED | grep -vE 'libkorvane-host|libstdc\+\+|libc\+\+|libgcc_s|libc\.|libm\.|ld-linux'; then
  fail "depends on more than the C++ runtime and the platform"
fi

# One dynamic initialiser: the metadata key.
[ "$(nm "$library" | grep -c '_GLOBAL__sub_I')" = 1 ] || fail "dynamic initialisers: $(nm "$library" | grep _GLOBAL__sub_I)"

# The marker: 16 bytes, PROGBITS, no flags, alignment 1, last before the section-name table.
cmake --install "$build" --prefix "$work/installed" --strip >/dev/null
installed=$(find "$work/installed" -name 'libkorvane-svcmgr.so.1.*' -type f)
cp "$library" "$work/stripped"
strip "$work/stripped"
for file in "$work/stripped" "$installed"; do
  readelf -SW "$file" | sed -n 's/^ *\[ *[0-9]*\] //p' >"$work/sections"
  tail -n 2 "$work/sections" | head -n 1 |
    grep -qE '^\.qel +PROGBITS +0+ [0-9a-f]+ 0+10 00 +0 +0 +1$' || fail "marker section in $file: $(tail -n 2 "$work/sections")"
  tail -n 1 "$work/sections" | grep -q '^\.shstrtab' || fail "marker is not last before the section-name table"
  objcopy -O binary --only-section=.qel --set-section-flags .qel=alloc "$file" "$work/marker"
  [ "$(od -An -tx1 -v "$work/marker" | tr -d ' \n')" = 51454c00000001000d00030000009a00 ] ||
    fail "marker contents: $(od -An -tx1 "$work/marker")"
done

# An application that finds the installed package builds against it.
find "$work/installed" -name korvane-svcmgr-config.cmake | grep -q . || fail "no package configuration installed"
echo "library file: ok"
