# What the toolchain files beside this one share. They set `triplet` and `emulator`, and include it.
#
# The distribution's cross compiler, with its packages of the other architecture unpacked in build/sysroots, which
# scripts/cross makes. The build machine itself gets no foreign packages.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})

cmake_path(SET sysroots NORMALIZE "${CMAKE_CURRENT_LIST_DIR}/../../build/sysroots")
set(CMAKE_SYSROOT ${sysroots}/${triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${triplet}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

# Test programs are run by user-mode emulation. They find the other architecture's libraries below its root.
set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator} -L ${CMAKE_SYSROOT})
