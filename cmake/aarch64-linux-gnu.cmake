# Cross build for AArch64 with Debian's g++-aarch64-linux-gnu; tests run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
# ld.so and libc.so.6 must come from the same package, or the first thread spins for ever: load the
# multiarch ones (from libc6:arm64) first and take only what exists solely in the cross dir from there.
if(NOT DEFINED CMAKE_CROSSCOMPILING_EMULATOR)
  set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L / -E
      LD_LIBRARY_PATH=/usr/lib/aarch64-linux-gnu:/usr/aarch64-linux-gnu/lib)
endif()
# There is no aarch64 pkg-config wrapper: point pkg-config at the arm64 .pc files.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
