#!/usr/bin/env bash
# The built library file: its exported names, its name, what it depends on, and the marker.
#   library_file_test.sh LIBRARY HEADER
. "$(dirname "$0")/support.sh"
library=$1 header=$2

# It exports the functions that the header declares, under the version of this name, and nothing else.
sed -nE 's/^SVCMGR_API int (korvane_svcmgr_[a-z_]+)\(.*/\1@@KORVANE_SVCMGR_1/p' "$header" | sort >"$work/declared"
nm -D --defined-only "$library" | awk '$2 != "A" { print $NF }' | sort >"$work/exported"
[ -s "$work/declared" ] || fail "no function found in $header"
diff "$work/declared" "$work/exported" || fail "exported names differ from the header"

readelf -d "$library" | grep -q 'SONAME.*\[libkorvane-svcmgr\.so\.1\]' || fail "soname"
if readelf -d "$library" | grep NEEDED | grep -vE 'libkorvane-host|libstdc\+\+|libc\+\+|libgcc_s|libc\.|libm\.|ld-linux'; then
  fail "depends on more than the C++ runtime and the platform"
fi

# One dynamic initialiser: the metadata key.
[ "$(nm "$library" | grep -c '_GLOBAL__sub_I')" = 1 ] || fail "dynamic initialisers: $(nm "$library" | grep _GLOBAL__sub_I)"

strip -o "$work/stripped" "$library"
"$(dirname "$0")/marker_section_test.sh" "$work/stripped"
