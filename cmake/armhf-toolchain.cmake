# Cross build for the panels: 32-bit ARM, hard float, glibc.
#
#   cmake -S . -B build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake \
#         -DLOGO_ARMHF_SYSROOT=/path/to/sysroot
#
# The compiler brings its own C library and libstdc++; the sysroot adds what
# the panel's firmware provides (QtCore and what it needs) and what the tests
# and tools link (GoogleTest, libmodbus). scripts/armhf.sh makes such a
# sysroot from Debian's armhf packages. A vendor's toolchain serves as well:
# set LOGO_CROSS_PREFIX to its compiler prefix and LOGO_ARMHF_SYSROOT to its
# sysroot (and CMAKE_SYSROOT too if its compiler does not know that sysroot).

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(LOGO_CROSS_PREFIX "arm-linux-gnueabihf-" CACHE STRING "Prefix of the cross compiler's programs")
set(LOGO_ARMHF_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../sysroot-armhf" CACHE PATH
    "Root of the target's libraries: QtCore, and for tools and tests libmodbus and GoogleTest")
get_filename_component(LOGO_ARMHF_SYSROOT "${LOGO_ARMHF_SYSROOT}" ABSOLUTE)
# try_compile projects read this file again and need the same two values.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES LOGO_CROSS_PREFIX LOGO_ARMHF_SYSROOT)

set(CMAKE_C_COMPILER "${LOGO_CROSS_PREFIX}gcc")
set(CMAKE_CXX_COMPILER "${LOGO_CROSS_PREFIX}g++")

# GCC notes that arguments with 8-byte alignment are passed differently than
# before GCC 7.1; that matters only when linking objects of an older
# compiler, and the driver's interface passes no such argument.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")

# Headers, libraries and CMake packages from the sysroot only; programs
# (moc, pkg-config) from the machine that builds.
set(CMAKE_FIND_ROOT_PATH "${LOGO_ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# QtCore pulls in ICU, GLib and the like; the linker must find them to check
# that the driver resolves, though the driver names none of them. Debian
# keeps them in multiarch folders, vendors' sysroots mostly in the plain ones.
foreach(dir lib/arm-linux-gnueabihf usr/lib/arm-linux-gnueabihf lib usr/lib)
  string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,-rpath-link,${LOGO_ARMHF_SYSROOT}/${dir}")
  string(APPEND CMAKE_SHARED_LINKER_FLAGS_INIT " -Wl,-rpath-link,${LOGO_ARMHF_SYSROOT}/${dir}")
endforeach()

set(ENV{PKG_CONFIG_SYSROOT_DIR} "${LOGO_ARMHF_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR} "${LOGO_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:\
${LOGO_ARMHF_SYSROOT}/usr/lib/pkgconfig:${LOGO_ARMHF_SYSROOT}/usr/share/pkgconfig")

# No binfmt on the build machines: CTest and test discovery call the
# emulator explicitly, with the sysroot as the target's root.
find_program(LOGO_QEMU_ARM qemu-arm)
if(LOGO_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${LOGO_QEMU_ARM};-L;${LOGO_ARMHF_SYSROOT}")
endif()
