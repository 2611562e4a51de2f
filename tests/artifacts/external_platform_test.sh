#!/usr/bin/env bash
# Builds the library for a platform whose headers define other handle types, as for a device: without
# the host, the programs and the tests. The host library provides the functions of this platform.
#   CXX=… external_platform_test.sh SOURCE_FOLDER HOST_LIBRARY EMULATOR SVCMGRCTL
. "$(dirname "$0")/support.sh"
source=$1 host_library=$2 emulator=$3 program=$4

mkdir "$work/include"
for header in "$source"/platform/*.h; do
  sed -E 's/^typedef struct \w+ \*(\w+_h);/typedef void *\1;/' "$header" >"$work/include/${header##*/}"
done
[ "$(cat "$work"/include/*.h | grep -c '^typedef void \*')" = 7 ] || fail "handle types"

configure() {
  cmake -S "$source" -B "$work/build" -DKORVANE_PLATFORM=external -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_FLAGS=-O0 -DKORVANE_WERROR=ON -DKORVANE_PLATFORM_INCLUDE_DIRS="$work/include" \
    -DKORVANE_PLATFORM_LIBRARIES="$host_library" "$@"
}

# The vendor's prefix is the ID without its last word, unless it is given.
prefix_is() { grep -rq "SVCMGR_VENDOR_PREFIX=\\\\\"$1\\\\\"" "$work/build/src" || fail "prefix is not $1"; }
! configure -DSVCMGR_APP_ID=svcmgr || fail "an ID without a vendor is accepted"
configure -DSVCMGR_APP_ID=svcmgr -DSVCMGR_VENDOR_PREFIX=org.example
prefix_is org.example

# An error names what is missing in the platform.
refused_for() { ! configure "${@:2}" 2>"$work/error" && grep -qF "$1" "$work/error" || fail "no error about $1"; }
refused_for none.so -DKORVANE_PLATFORM_LIBRARIES="$work/none.so"
refused_for rpc_port_parcel_send -DKORVANE_PLATFORM_LIBRARIES=m
mkdir "$work/other"
grep -v bundle_get_byte "$work/include/bundle.h" >"$work/other/bundle.h"
refused_for app_event.h -DKORVANE_PLATFORM_INCLUDE_DIRS="$work/other"
refused_for bundle_get_byte -DKORVANE_PLATFORM_INCLUDE_DIRS="$work/other;$work/include"

configure -DSVCMGR_APP_ID=com.korvane.device.svcmgr -DSVCMGR_VENDOR_PREFIX=
prefix_is com.korvane.device
cmake --build "$work/build" -j 2
cmake --install "$work/build" --prefix "$work/installed"

# A program that was linked to the library for another platform works with this one.
LD_LIBRARY_PATH=$(dirname "$(find "$work/installed" -name libkorvane-svcmgr.so)")
export LD_LIBRARY_PATH KORVANE_DEVICE=$work/device KORVANE_APP_ID=com.example.viewer
[[ $(ldd "$program") == *"$LD_LIBRARY_PATH/libkorvane-svcmgr.so.1"* ]] || fail "the library is not used"
"$emulator" --init >/dev/null
"$program" client-level
