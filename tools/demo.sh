#!/usr/bin/env bash
# Builds pelcast and runs real conversions on a built-in test frame (no input
# files needed), checking every round trip byte for byte.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ -x tools/install-deps.sh ]; then tools/install-deps.sh; fi
cmake --preset release >/dev/null
cmake --build --preset release -j"$(nproc)" --target pelcast pelcast-testframe >/dev/null

bin=build/release
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
W=${W:-1280}
H=${H:-720}

"$bin/tools/pelcast-testframe" i420 "$W" "$H" "$work/frame.i420"
"$bin/tools/pelcast-testframe" nv12 "$W" "$H" "$work/frame.nv12"

same() {  # same FILE1 FILE2 WHAT
  if cmp -s "$1" "$2"; then echo "  $3: identical ($(stat -c %s "$1") bytes)";
  else echo "  $3: DIFFERENT"; exit 1; fi
}

echo "== planar 4:2:0 -> NV12 -> planar 4:2:0, ${W}x${H} =="
"$bin/pelcast" P "$work/frame.i420" "$work/p.nv12" "$W" "$H"
same "$work/p.nv12" "$work/frame.nv12" "P output against the NV12 test frame"
"$bin/pelcast" I "$work/p.nv12" "$work/back.i420" "$W" "$H"
same "$work/back.i420" "$work/frame.i420" "I output against the original"
echo "== PSNR of the round trip (identical frames give the peak value) =="
"$bin/pelcast" S "$work/frame.i420" "$work/back.i420" "$W" "$H"
