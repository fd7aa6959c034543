# Compiles for the panel's processor, 32-bit ARM with hardware floating point, and runs what was built under
# emulation. ARM_SYSROOT in the environment names the folder that scripts/arm-sysroot has filled.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

if(DEFINED ENV{ARM_SYSROOT})
  set(CMAKE_SYSROOT $ENV{ARM_SYSROOT})
else()
  cmake_path(SET CMAKE_SYSROOT NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../build/arm-sysroot)
endif()

set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CXX_FLAGS_INIT "-march=armv7-a -mfpu=vfpv3-d16 -mfloat-abi=hard -Wno-psabi")
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static -L ${CMAKE_SYSROOT})

# moc and its like run here: they are the host's.
set(QT_HOST_PATH /usr CACHE PATH "")
set(QT_HOST_PATH_CMAKE_DIR /usr/lib/${CMAKE_HOST_SYSTEM_PROCESSOR}-linux-gnu/cmake CACHE PATH "")
