# 32-bit ARM Linux with hardware floating point
set(architecture armhf)
set(triplet arm-linux-gnueabihf)
set(processor armv7l)
set(machine arm)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi) # notes about compilers older than any that is used here
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
