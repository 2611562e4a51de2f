#!/usr/bin/env bash
# An installed copy that was moved to another folder: its programs start, and applications build with
# it, with CMake and with pkg-config.
#   CC=… install_test.sh BUILD_FOLDER EXAMPLES_FOLDER
. "$(dirname "$0")/support.sh"
build=$1 examples=$2

# Without a device, a program fails with a message of its own; 127 is the status of the loader.
starts() {
  local status=0
  env -i "$@" >"$work/output" 2>&1 || status=$?
  [ $status -ne 127 ] || fail "$1 does not start: $(cat "$work/output")"
}

DESTDIR=$work/staged cmake --install "$build" --prefix /opt/korvane --strip >/dev/null
installed=$work/moved
mv "$work/staged/opt/korvane" "$installed"
rmdir "$work/staged/opt" "$work/staged" || fail "files outside the prefix"
"$(dirname "$0")/marker_section_test.sh" "$installed"/lib*/libkorvane-svcmgr.so.1
[[ $(ldd "$installed"/lib*/libkorvane-svcmgr.so.1) != *"not found"* ]] || fail "the library misses its platform"
for program in "$installed"/bin/*; do starts "$program" --help; done

# The headers have no warnings in C++20 either.
cmake -S "$examples" -B "$work/examples" -DCMAKE_PREFIX_PATH="$installed" -DCMAKE_CXX_STANDARD=20 \
  -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wconversion -Wshadow -Werror" >"$work/output" &&
  cmake --build "$work/examples" >>"$work/output" || { cat "$work/output"; fail "CMake"; }
for language in c cpp; do
  starts "$work/examples/example_models_$language"
  [[ $(ldd "$work/examples/example_models_$language") == *"$installed"* ]] || fail "links another copy"
done

PKG_CONFIG_PATH=$(find "$installed" -name pkgconfig)
export PKG_CONFIG_PATH
# shellcheck disable=SC2046 # flags are several words
"$CC" "$examples/models.c" -o "$work/models" $(pkg-config --cflags --libs korvane-svcmgr korvane-host)
starts LD_LIBRARY_PATH="$(pkg-config --variable=libdir korvane-host)" "$work/models"
