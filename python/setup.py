"""Builds the pelcast Python package from a clone of the pelcast repository.

The extension pelcast._pelcast is linked against libpelcast.a, the
repository's CMake target pelcast_static (position-independent objects), which
this build makes first in its own CMake build folder under build/. The wheel
needs no installed libpelcast.

pip builds a local folder in place (pip >= 21.3), so the repository is this
folder's parent. Offline on Debian 12:

    python3 -m venv --system-site-packages .venv
    .venv/bin/pip install --no-build-isolation ./python
"""

import os
import re
import subprocess
import sys
from pathlib import Path

from pybind11.setup_helpers import Pybind11Extension, build_ext
from setuptools import setup

PACKAGE_DIR = Path(__file__).resolve().parent
REPOSITORY = PACKAGE_DIR.parent
HEADER = REPOSITORY / "include" / "pelcast" / "pelcast.h"

if not HEADER.is_file():
    sys.exit(
        f"pelcast: {HEADER} not found. The package builds from the python/ folder of a "
        "pelcast clone, in place: pip >= 21.3 with `pip install --no-build-isolation ./python`."
    )


def library_version():
    """MAJOR.MINOR.PATCH from the public header, which pelcast_version() reports."""
    text = HEADER.read_text()
    parts = []
    for part in ("MAJOR", "MINOR", "PATCH"):
        found = re.search(rf"#define PELCAST_VERSION_{part} (\d+)", text)
        if found is None:
            sys.exit(f"pelcast: no PELCAST_VERSION_{part} in {HEADER}")
        parts.append(found.group(1))
    return ".".join(parts)


class BuildWithLibrary(build_ext):
    """build_ext that first builds libpelcast.a with CMake and links it in."""

    def run(self):
        library = self.build_library()
        for extension in self.extensions:
            extension.extra_objects.append(str(library))
            # Relinks when the library changes.
            extension.depends.append(str(library))
        super().run()

    def build_library(self):
        build_dir = Path(self.build_temp).resolve() / "libpelcast"
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL") or str(os.cpu_count() or 1)
        subprocess.run(
            [
                "cmake", "-S", str(REPOSITORY), "-B", str(build_dir),
                "-DCMAKE_BUILD_TYPE=Release",
                "-DPELCAST_BUILD_TESTS=OFF",
                "-DPELCAST_BUILD_BENCH=OFF",
                "-DPELCAST_BUILD_FUZZ=OFF",
            ],
            check=True,
        )
        subprocess.run(
            ["cmake", "--build", str(build_dir), "--target", "pelcast_static", "--parallel", jobs],
            check=True,
        )
        library = build_dir / "api" / "libpelcast.a"
        if not library.is_file():
            sys.exit(f"pelcast: CMake built no {library}")
        return library


extension = Pybind11Extension(
    "pelcast._pelcast",
    ["src/pelcast_module.cc"],
    include_dirs=[str(REPOSITORY / "include")],
    define_macros=[("PELCAST_STATIC_DEFINE", "1")],
    cxx_std=20,
    extra_compile_args=["-Wall", "-Wextra", "-Werror"],
    # The library's symbols stay inside the extension.
    extra_link_args=["-Wl,--exclude-libs,ALL"],
    depends=[str(HEADER)],
)

setup(
    version=library_version(),
    packages=["pelcast"],
    ext_modules=[extension],
    cmdclass={"build_ext": BuildWithLibrary},
    zip_safe=False,
)
