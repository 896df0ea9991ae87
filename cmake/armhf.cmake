# Toolchain for 32-bit ARM, hard float, as Debian's armhf.
#
# Compiler, C and C++ libraries come from Debian's cross packages (/usr/arm-linux-gnueabihf). The
# libraries that those leave out stand in a private folder made by scripts/armhf-sysroot.sh, so that
# the machine needs no foreign architecture.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Without notes on how g++ 6 passed arguments.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

get_filename_component(CONFKIT_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH ${CONFKIT_SYSROOT} /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CONFKIT_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CONFKIT_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig)

# Also the headers-only libraries, linked into the private folder from the host's.
include_directories(SYSTEM ${CONFKIT_SYSROOT}/usr/include)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)
