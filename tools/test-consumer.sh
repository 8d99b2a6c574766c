#!/usr/bin/env bash
# The package as a program outside the repository uses it: installs the
# release build into a temporary prefix, then builds examples/roundtrip.c
# against it with find_package() (shared and static library), with
# pkg-config, and with add_subdirectory() of the source tree, and runs each
# on committed frames: the ZPAK frames they write must equal what the
# installed pelcast command writes, and every frame must decode back.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

prefix=$work/prefix
cmake --install build/release --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name libpelcast.so.1 | head -n 1)")
echo "installed: $(cd "$prefix" && find . -type f | sort | tr '\n' ' ')"

# The same frames through the installed command, as the reference.
check() {  # program, label
  local program=$1 label=$2
  for case in "rgba8888 H photo-meadow-256x144.rgba 256 144" \
              "nv12 N screen-messages-256x144.nv12 256 144" \
              "nv12 N photo-mountains-97x61.nv12 97 61"; do
    read -r format letter file w h <<<"$case"
    "$prefix/bin/pelcast" "$letter" "$root/tests/data/$file" "$work/expected.zpak" "$w" "$h" >/dev/null
    "$program" "$format" "$w" "$h" "$root/tests/data/$file" "$work/got.zpak" 2 >/dev/null
    cmp "$work/expected.zpak" "$work/got.zpak"
  done
  "$program" rgb565 256 144 "$root/tests/data/screen-player-256x144.rgb565" "$work/got.zpak" >/dev/null
  echo "consumer ($label): frames equal to the command's, every frame decoded back"
}

cmake -S examples -B "$work/find" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/find" >/dev/null
check "$work/find/roundtrip" "find_package, shared library"
check "$work/find/roundtrip_static" "find_package, static library"

export PKG_CONFIG_PATH=$libdir/pkgconfig
# shellcheck disable=SC2046  # the flags are lists
cc -std=c99 -Wall -Wextra -Werror examples/roundtrip.c $(pkg-config --cflags --libs pelcast) \
  -Wl,-rpath,"$libdir" -o "$work/roundtrip_pc"
check "$work/roundtrip_pc" "pkg-config $(pkg-config --modversion pelcast)"

cmake -S examples -B "$work/sub" -G Ninja -DPELCAST_SOURCE_DIR="$root" >/dev/null
cmake --build "$work/sub" -j2 --target roundtrip >/dev/null
check "$work/sub/roundtrip" "add_subdirectory"
