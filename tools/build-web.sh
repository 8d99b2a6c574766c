#!/usr/bin/env bash
# Builds the browser viewer into build/web/: the library, identify and the
# viewer's code compiled to WebAssembly by Debian's Emscripten (one
# pelcast.js with the module inside, so the page also works opened from
# disk), next to the page's own files from web/. Open build/web/index.html.
#
#   tools/build-web.sh [--debug]
set -euo pipefail
cd "$(dirname "$0")/.."

build_type=Release
if [ "${1:-}" = "--debug" ]; then build_type=Debug; fi

if ! command -v emcmake >/dev/null; then
  echo "build-web: emcmake not found (apt-get install emscripten, or tools/install-deps.sh)" >&2
  exit 1
fi
# Debian's Emscripten runs its JavaScript tools with whatever node is first
# on the PATH; one that is not Debian's own finds Debian's acorn only here.
export NODE_PATH=/usr/share/nodejs${NODE_PATH:+:$NODE_PATH}

cmake_dir=build/web-cmake
emcmake cmake -S . -B "$cmake_dir" -G Ninja -DCMAKE_BUILD_TYPE="$build_type" \
  -DPELCAST_BUILD_TESTS=OFF -Wno-dev >/dev/null 2>&1 || {
  echo "build-web: configuring the Emscripten build failed; rerun: emcmake cmake -S . -B $cmake_dir" >&2
  exit 1
}
cmake --build "$cmake_dir" --target pelcast-viewer -j"$(nproc)"

out=build/web
mkdir -p "$out"
cp "$cmake_dir/web/pelcast.js" web/index.html web/viewer.js web/viewer.css "$out/"
echo "build-web: $out/index.html ($(du -k "$out/pelcast.js" | cut -f1) KB module)"
