# What every target of ours is compiled with, and no target of anyone else's.
add_library(project_options INTERFACE)
target_compile_features(project_options INTERFACE cxx_std_17)
target_compile_options(project_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion
    $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion> # as g++, which does not count it as -Wconversion in C++
    -UNDEBUG                                  # the assertions are behaviour, in every build type
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/= # log lines name the same path on every machine
)

set(AUTHCHIPDRIVER_SANITIZE "" CACHE STRING "Sanitizers for every target: address,undefined or thread")
if(AUTHCHIPDRIVER_SANITIZE)
    target_compile_options(project_options INTERFACE
        -fsanitize=${AUTHCHIPDRIVER_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
        -Wno-maybe-uninitialized) # false alarms in the instrumented standard library (std::regex, g++ 12)
    target_link_options(project_options INTERFACE -fsanitize=${AUTHCHIPDRIVER_SANITIZE})
endif()
