# For the toolchain files beside it: Linux on another architecture, against the folder that scripts/sysroot makes; what is
# built runs on the build machine through the emulator. They set architecture (Debian's name of it), triplet (GNU's),
# processor (the kernel's) and machine (the emulator's).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${processor})
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})

set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)

set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/${architecture})
cmake_path(NORMAL_PATH CMAKE_SYSROOT)
if(NOT EXISTS ${CMAKE_SYSROOT}/usr/include)
    message(FATAL_ERROR "There is no ${CMAKE_SYSROOT}; 'scripts/sysroot ${architecture}' makes it.")
endif()
# What a caller names is looked up as it is, all else in there.
set(CMAKE_FIND_ROOT_PATH ${CMAKE_SYSROOT} ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# pkg-config knows one system at a time.
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${triplet}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

find_program(AUTHCHIPDRIVER_EMULATOR NAMES qemu-${machine}-static qemu-${machine})
set(CMAKE_CROSSCOMPILING_EMULATOR ${AUTHCHIPDRIVER_EMULATOR};-L;${CMAKE_SYSROOT})
