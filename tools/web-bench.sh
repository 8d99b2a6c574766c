#!/usr/bin/env bash
# Decode speed of the browser viewer's WebAssembly module in headless
# chromium against the native library on the same 1920x1080 frames, measured
# in one run (web/bench/decode-speed.mjs). Uses the corpus when it is there
# (PELCAST_CORPUS_DIR, default the corpus folder beside the repository) and
# says so; without it, mosaics of the committed test crops.
#
#   tools/web-bench.sh [RUNS]
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset release >/dev/null
cmake --build --preset release -j"$(nproc)" --target pelcast pelcast-web-helper >/dev/null
tools/build-web.sh >/dev/null
stamp=web/node_modules/.pelcast-installed-lock
if ! cmp -s web/package-lock.json "$stamp" 2>/dev/null; then
  (cd web && PUPPETEER_SKIP_DOWNLOAD=1 npm ci --no-audit --no-fund --loglevel=error)
  cp web/package-lock.json "$stamp"
fi
PELCAST_CORPUS_DIR=${PELCAST_CORPUS_DIR:-$PWD/../shared/corpus} node web/bench/decode-speed.mjs "$@"
