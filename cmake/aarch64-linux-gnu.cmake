# Cross build for 64-bit Arm Linux with Debian's aarch64-linux-gnu compiler
# (package g++-aarch64-linux-gnu). Linked statically (see the arm64-static
# preset), the executable runs on any arm64 Linux kernel, Android's included,
# with no C library of the device's own.
#
# Tests and test discovery run under qemu-aarch64 (package qemu-user) when it
# is installed; the build itself needs neither the emulator nor binfmt.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(PELCAST_CROSS_TRIPLE aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${PELCAST_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${PELCAST_CROSS_TRIPLE}-g++)

# Libraries and headers of the target come from the cross sysroot only; the
# build's own programs come from the host.
set(PELCAST_CROSS_SYSROOT /usr/${PELCAST_CROSS_TRIPLE})
set(CMAKE_FIND_ROOT_PATH ${PELCAST_CROSS_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# -L lets the emulator find the target's dynamic loader and shared libraries,
# so a build without -static runs its tests as well.
find_program(PELCAST_QEMU_AARCH64 qemu-aarch64)
if(PELCAST_QEMU_AARCH64)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${PELCAST_QEMU_AARCH64} -L ${PELCAST_CROSS_SYSROOT})
endif()
