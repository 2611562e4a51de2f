#!/usr/bin/env bash
# Checks the built library file, and the marker in stripped and installed copies of it.
#   library_file_test.sh LIBRARY HEADER BUILD_FOLDER
. "$(dirname "$0")/support.sh"
library=$1 header=$2 build=$3

# Exported, under the version node of this soname, is what the header declares, and nothing else.
grep -o 'korvane_svcmgr_[a-z_]*(' "$header" | tr -d '(' | sort -u |
  while read -r name; do grep -q "SVCMGR_API int $name(" "$header" && echo "$name@@KORVANE_SVCMGR_1"; done >"$work/declared"
nm -D --defined-only "$library" | awk '$2 != "A" { print $NF }' | sort >"$work/exported"
[ -s "$work/declared" ] || fail "no function found in $header"
diff "$work/declared" "$work/exported" || fail "exported names differ from the header"

readelf -d "$library" | grep -q 'SONAME.*\[libkorvane-svcmgr\.so\.1\]' || fail "soname"
if readelf -d "$library" | grep NEEDED | grep -vE 'libkorvane-host|libstdc\+\+|libc\+\+|libgcc_s|libc\.|libm\.|ld-linux'; then
  fail "depends on more than the C++ runtime and the platform"
fi

# One dynamic initialiser: the metadata key.
[ "$(nm "$library" | grep -c '_GLOBAL__sub_I')" = 1 ] || fail "dynamic initialisers: $(nm "$library" | grep _GLOBAL__sub_I)"

cmake --install "$build" --prefix "$work/installed" --strip >/dev/null
installed=$(find "$work/installed" -name 'libkorvane-svcmgr.so.1.*' -type f)
cp "$library" "$work/stripped"
strip "$work/stripped"
"$(dirname "$0")/marker_section_test.sh" "$work/stripped" "$installed"
echo "library file: ok"
