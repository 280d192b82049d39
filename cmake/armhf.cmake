# The set's machine: 32-bit ARM with hard floating point, built by Debian's cross compiler and run under emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)
# Silences the compiler's notes on an old change of its calling conventions.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
# Without it pkg-config would find this machine's own libraries.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/arm-linux-gnueabihf/pkgconfig:/usr/share/pkgconfig)
