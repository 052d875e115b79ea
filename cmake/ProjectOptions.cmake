# Compile options for all our targets, and only for these.
add_library(authchipdriver_options INTERFACE)
target_compile_features(authchipdriver_options INTERFACE cxx_std_17)
if(PROJECT_IS_TOP_LEVEL)
    target_compile_options(authchipdriver_options INTERFACE
        -Wall -Wextra -Wpedantic -Wshadow -Wconversion
        $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>) # as g++, which does not count it as -Wconversion in C++
else()
    # Other projects have other warnings, and compilers that did not exist when this was written.
    set(CMAKE_COMPILE_WARNING_AS_ERROR OFF)
    target_compile_options(authchipdriver_options INTERFACE -Wno-error)
    set(CMAKE_UNITY_BUILD OFF) # names of two sources of a parent's may be the same, ours must not depend on that
endif()
if(CMAKE_UNITY_BUILD)
    # Among others, g++ takes a source for a header, which others include as well.
    target_compile_options(authchipdriver_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endif()
target_compile_options(authchipdriver_options INTERFACE
    -UNDEBUG                                  # the assertions are behaviour, in every build type
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/= # log lines name the same path on every machine
)

# For whatever is linked with a sanitized library, a program outside of this project included.
set(AUTHCHIPDRIVER_SANITIZER_FLAG "")
if(AUTHCHIPDRIVER_SANITIZE)
    set(AUTHCHIPDRIVER_SANITIZER_FLAG -fsanitize=${AUTHCHIPDRIVER_SANITIZE})
    target_compile_options(authchipdriver_options INTERFACE
        ${AUTHCHIPDRIVER_SANITIZER_FLAG} -fno-sanitize-recover=all -fno-omit-frame-pointer
        $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>) # false alarms in the instrumented standard library (std::regex, g++ 12)
    target_link_options(authchipdriver_options INTERFACE ${AUTHCHIPDRIVER_SANITIZER_FLAG})
endif()

if(AUTHCHIPDRIVER_FUZZ) # the fuzzer sees which branches its input takes, also those of the library
    target_compile_options(authchipdriver_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# In addition to authchipdriver_options, for targets whose lines and branches are counted.
add_library(authchipdriver_coverage INTERFACE)
if(AUTHCHIPDRIVER_COVERAGE)
    target_compile_options(authchipdriver_coverage INTERFACE --coverage -fprofile-update=atomic -O0)
    target_link_options(authchipdriver_coverage INTERFACE --coverage)
endif()

# Instrumented builds make additional system calls and allocations, and have additional symbols.
set(AUTHCHIPDRIVER_INSTRUMENTED OFF)
if(AUTHCHIPDRIVER_SANITIZE OR AUTHCHIPDRIVER_COVERAGE)
    set(AUTHCHIPDRIVER_INSTRUMENTED ON)
endif()
