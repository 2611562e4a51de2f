#!/usr/bin/env bash
# An installed copy, moved to a place that nobody foresaw: its programs start, and applications build
# against it with CMake and with pkg-config.
#   CC=… install_test.sh BUILD_FOLDER EXAMPLES_FOLDER
. "$(dirname "$0")/support.sh"
build=$1 examples=$2

# A program without a device fails with a message of its own; 127 is the loader's.
starts() {
  local status=0
  env -i "$@" >"$work/output" 2>&1 || status=$?
  [ $status -ne 127 ] || fail "$1 does not start: $(cat "$work/output")"
}

DESTDIR=$work/staged cmake --install "$build" --prefix /opt/korvane >/dev/null
installed=$work/moved
mv "$work/staged/opt/korvane" "$installed"
rmdir "$work/staged/opt" "$work/staged" || fail "files outside the prefix"

for program in "$installed"/bin/*; do starts "$program" --help; done

[[ $(ldd "$installed"/lib*/libkorvane-svcmgr.so.1) != *"not found"* ]] || fail "the library misses its platform"

# The headers are as clean in C++20.
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
echo "install: ok"
