#!/usr/bin/env bash
# The Python stage: installs the package python/ the way its README says, in
# a virtual environment under build/ that sees Debian's python3-* packages
# (numpy, pybind11, pytest, Pillow), offline, and runs its tests against the
# release build's pelcast and zpak (built first if missing).
# Debian's /usr/bin/python3 is used whatever `python3` the PATH finds.
set -euo pipefail
cd "$(dirname "$0")/.."

python=/usr/bin/python3
venv=build/python-venv

if [ -x tools/install-deps.sh ]; then tools/install-deps.sh; fi

if [ ! -x build/release/pelcast ]; then
  cmake --preset release >/dev/null
  cmake --build --preset release -j2
fi

if [ ! -x "$venv/bin/python" ]; then
  "$python" -m venv --system-site-packages "$venv"
fi
# --no-index: nothing may come from a package index; the build uses the
# venv's setuptools and Debian's wheel and pybind11.
"$venv/bin/pip" install --quiet --no-index --no-build-isolation ./python

# From the repository's root, so that `import pelcast` finds the installed
# package and not the sources in python/.
PELCAST_BINARY=build/release/pelcast \
PELCAST_ZPAK=build/release/tools/zpak/zpak \
  "$venv/bin/python" -m pytest -q -p no:cacheprovider python/tests
