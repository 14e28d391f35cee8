# Cross build for 32-bit ARM Linux, hard-float (Debian: g++-arm-linux-gnueabihf).
# Programs built with it run on an x86-64 host under qemu-arm (Debian:
# qemu-user), with the ARM sysroot of the cross toolchain; CTest uses that as
# the emulator. GoogleTest is built from source for the target (Debian:
# googletest, in /usr/src/googletest).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(ARM_TRIPLE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${ARM_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${ARM_TRIPLE}-g++)
set(ARM_SYSROOT /usr/${ARM_TRIPLE})
# GCC notes that the passing of some structures changed in GCC 7.1; all the
# code here is built by one compiler, so the note says nothing.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")

set(CMAKE_FIND_ROOT_PATH ${ARM_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm;-L;${ARM_SYSROOT})

if(NOT DEFINED HEXBLOCKS_GTEST_SOURCE_DIR AND EXISTS /usr/src/googletest/CMakeLists.txt)
    set(HEXBLOCKS_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest sources to build for the target")
endif()
