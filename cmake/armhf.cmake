# Toolchain of a 32-bit ARM board: Debian's cross compiler, and its libraries as armhf packages
# beside those of this machine. What was built runs here under qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(RS232_DEBIAN_ARCHITECTURE armhf)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)
# No notes on what GCC 7 changed in the calling convention.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")
