# Builds for 32-bit ARM with hardware floating point (Debian's armhf) on another machine:
# with Debian's cross compiler, against the Debian system unpacked at KESTAN_SYSROOT;
# qemu-arm runs what has been built. scripts/cross-arm.sh makes the sysroot.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Without GCC's notes on its ABI change of 2017.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(KESTAN_SYSROOT "" CACHE PATH "The root of an armhf system with Kestan's libraries")
if(KESTAN_SYSROOT MATCHES " ")
    message(FATAL_ERROR "pkg-config cannot find libraries in a root whose path has a blank: "
        "${KESTAN_SYSROOT}")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KESTAN_SYSROOT)
set(CMAKE_SYSROOT ${KESTAN_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_SYSROOT_DIR} ${KESTAN_SYSROOT})
set(pkg_config_path)
foreach(folder lib/${CMAKE_LIBRARY_ARCHITECTURE} lib share)
    list(APPEND pkg_config_path ${KESTAN_SYSROOT}/usr/${folder}/pkgconfig)
endforeach()
list(JOIN pkg_config_path ":" pkg_config_path)
set(ENV{PKG_CONFIG_LIBDIR} ${pkg_config_path})

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${KESTAN_SYSROOT})
