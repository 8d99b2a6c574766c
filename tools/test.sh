#!/usr/bin/env bash
# Builds and runs every test: the optimised build, the address+undefined
# sanitizer build, the thread sanitizer build (the codec's and the commands'
# worker threads), and the other stages the project has (the browser viewer
# in headless chromium, a program built against the installed package, the
# Python package, arm64 under emulation, fuzz smoke runs). Installs what a
# fresh Debian 12 machine lacks.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ -x tools/install-deps.sh ]; then tools/install-deps.sh; fi

stage() { echo; echo "=== $* ==="; }

for preset in release debug-asan tsan; do
  stage "$preset: configure, build, test"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j"$(nproc)"
  ctest --preset "$preset" -j"$(nproc)"
done

for extra in tools/test-web.sh tools/test-consumer.sh tools/test-python.sh tools/test-arm64.sh tools/fuzz-smoke.sh; do
  if [ -x "$extra" ]; then
    stage "$extra"
    "$extra"
  fi
done
stage "all stages passed"
