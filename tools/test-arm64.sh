#!/usr/bin/env bash
# The arm64 stage: configures and builds the statically linked arm64 preset
# with the cross compiler, checks that the executable is a static arm64 one
# that starts with no target libraries at hand, and runs the whole test suite
# under qemu-aarch64. Prints the ctest summary and the stage's wall time.
set -euo pipefail
cd "$(dirname "$0")/.."

preset=arm64-static
bin=build/$preset/pelcast
jobs=2  # the machines have two cores shared with everything else
start_us=${EPOCHREALTIME/./}

if [ -x tools/install-deps.sh ]; then tools/install-deps.sh; fi

cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j"$jobs"

# A device has no C library the build machine's would work with: the
# executable must carry everything it needs.
description=$(file -b "$bin")
case "$description" in
  *"ARM aarch64"*"statically linked"*) echo "$bin: $description" ;;
  *) echo "ERROR: $bin is not a static arm64 executable: $description"; exit 1 ;;
esac
# Started without the emulator's library path (no -L): a static executable
# needs none. Any output at all shows it ran.
if [ -z "$(qemu-aarch64 "$bin")" ]; then
  echo "ERROR: $bin printed nothing under qemu-aarch64"; exit 1
fi

ctest --preset "$preset" -j"$jobs"

elapsed_ds=$(( (${EPOCHREALTIME/./} - start_us) / 100000 ))
echo "arm64 stage (configure + build + test): $((elapsed_ds / 10)).$((elapsed_ds % 10)) s wall time"
