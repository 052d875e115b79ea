# 64-bit ARM Linux
set(architecture arm64)
set(triplet aarch64-linux-gnu)
set(processor aarch64)
set(machine aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
