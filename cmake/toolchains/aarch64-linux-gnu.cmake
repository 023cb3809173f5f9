# Linux on ARM64 with Debian's cross compiler and the arm64 libraries of
# multiarch (/usr/lib/aarch64-linux-gnu); ISA-L comes from CMAKE_PREFIX_PATH.
# Target programs, the tests among them, run under qemu user emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static)
# pkg-config sees the target's .pc files only, never the build machine's.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
