# Cross build for the instrument's controller: Debian 12 armhf
# (arm-linux-gnueabihf), with Debian's cross compiler and a sysroot made by
# scripts/armhf-sysroot.sh. Programs built here (the unit tests, the
# credential block generator) run on the build machine under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

if(NOT FPT_ARMHF_SYSROOT)
  set(FPT_ARMHF_SYSROOT /var/cache/front_panel_test/armhf-sysroot)
endif()
set(FPT_ARMHF_SYSROOT ${FPT_ARMHF_SYSROOT} CACHE PATH "armhf root made by scripts/armhf-sysroot.sh")
# CMake reads this file again for each check it compiles: without this, those
# checks would see the default root, and the compiler's library folders found
# there would not match the real ones (the programs then get a RUNPATH).
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES FPT_ARMHF_SYSROOT)
if(NOT EXISTS ${FPT_ARMHF_SYSROOT}/.fpt-sysroot)
  message(FATAL_ERROR "No armhf sysroot at ${FPT_ARMHF_SYSROOT}: run scripts/armhf-sysroot.sh")
endif()

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_SYSROOT ${FPT_ARMHF_SYSROOT})
# Everything here is built by one compiler: GCC's note that the ARM calling
# convention for some arguments changed in GCC 7.1 concerns no code of ours.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${FPT_ARMHF_SYSROOT})

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# pkg-config, for the libraries that only it describes.
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${FPT_ARMHF_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${FPT_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${FPT_ARMHF_SYSROOT}/usr/share/pkgconfig)
