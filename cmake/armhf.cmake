# Toolchain for a 32-bit ARM board: Debian's cross compiler, with its libraries as armhf packages.
# The results run under qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(RS232_DEBIAN_ARCHITECTURE armhf)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)
# Suppress the notes on the calling convention that GCC 7 changed.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")
