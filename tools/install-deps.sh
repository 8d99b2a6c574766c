#!/usr/bin/env bash
# Installs what a fresh Debian 12 machine lacks to build and test pelcast:
# the compilers and build tools, GoogleTest (prebuilt for the host and as
# sources for cross builds), Google Benchmark, clang for the fuzz targets,
# for the arm64 stage the aarch64 cross compiler and the user-mode emulator,
# for the Python package Debian's Python with its headers, venv, wheel,
# pybind11, numpy, pytest and Pillow (the README's example), and for the
# browser viewer Emscripten, chromium, node and npm.
# Prints nothing and touches nothing when everything is already there; runs
# `apt-get update` once, and only when something has to be installed.
set -euo pipefail

packages=(
  g++ cmake ninja-build make git file pkg-config
  googletest libgtest-dev libbenchmark-dev libpng-dev
  clang libclang-rt-14-dev
  g++-aarch64-linux-gnu qemu-user
  python3-dev python3-venv python3-wheel python3-pybind11 python3-numpy python3-pytest python3-pil
  emscripten chromium
)

installed() {
  dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q '^install ok installed$'
}

missing=()
for package in "${packages[@]}"; do
  installed "$package" || missing+=("$package")
done
# The browser viewer's tests run under node with npm; a node installed from
# elsewhere (with its own npm) serves as well as Debian's.
command -v node >/dev/null || installed nodejs || missing+=(nodejs)
command -v npm >/dev/null || installed npm || missing+=(npm)
[ ${#missing[@]} -eq 0 ] && exit 0

# CI runs as root; a developer's own machine may need sudo.
as_root=()
if [ "$(id -u)" -ne 0 ]; then as_root=(sudo); fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
