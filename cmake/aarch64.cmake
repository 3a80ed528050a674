# Toolchain: builds for aarch64 with Debian's cross compiler and its arm64 libraries, and runs the
# tests under qemu's emulation of a single process.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
find_program(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 REQUIRED)
