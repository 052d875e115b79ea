# The target log4cplus::log4cplus, by log4cplus' own CMake files or, where it was installed without them, by pkg-config.
find_package(log4cplus 2.0 QUIET)
if(log4cplus_FOUND)
    # Debian's names two of the system's libraries by their place on a machine of its architecture; a sysroot has them
    # elsewhere. The linker finds them by name.
    get_target_property(needs log4cplus::log4cplus INTERFACE_LINK_LIBRARIES)
    list(TRANSFORM needs REPLACE "^/.*/lib([a-z]+)\\.(a|so)$" "\\1")
    set_target_properties(log4cplus::log4cplus PROPERTIES INTERFACE_LINK_LIBRARIES "${needs}")
else()
    find_package(PkgConfig REQUIRED)
    pkg_check_modules(LOG4CPLUS REQUIRED IMPORTED_TARGET log4cplus>=2.0)
    add_library(log4cplus::log4cplus ALIAS PkgConfig::LOG4CPLUS)
endif()
