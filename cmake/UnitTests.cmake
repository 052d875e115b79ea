include(GoogleTest)

# The tests of a build keep their temporary files, and the lock between processes that is made there, apart from others'.
# The name is short: the address of a local socket takes 107 characters.
string(SHA1 TESTS_TMPDIR ${PROJECT_BINARY_DIR})
string(SUBSTRING ${TESTS_TMPDIR} 0 8 TESTS_TMPDIR)
set(TESTS_TMPDIR /tmp/authchip-${TESTS_TMPDIR})

# add_unit_tests(NAME SOURCES file... LIBRARIES target...): a GoogleTest program of which ctest runs every case in a
# process of its own, so that no case sees the process-wide state of another. A case with a parameter is called by the
# parameter's name; what GoogleTest prints of the value may be an address, another one in each run.
function(add_unit_tests name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE authchipdriver_options ${arg_LIBRARIES} GTest::gtest_main)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
    # The library looks the host's hook and the faked system calls up in the program.
    set_target_properties(${name} PROPERTIES ENABLE_EXPORTS ON)
    gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60
        PROPERTIES FIXTURES_REQUIRED kept_lock ENVIRONMENT TMPDIR=${TESTS_TMPDIR})
endfunction()

# add_soak_test(NAME PROGRAM [FILTER filter] ENVIRONMENT VARIABLE=value...): the cases of a test program in one process,
# with the figures of a long run. The preset soak runs it; the others leave out what has its label.
function(add_soak_test name program)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "FILTER" "ENVIRONMENT")
    if(NOT arg_FILTER)
        set(arg_FILTER "*")
    endif()
    add_test(NAME ${name} COMMAND ${program} --gtest_filter=${arg_FILTER})
    set_tests_properties(${name} PROPERTIES LABELS soak TIMEOUT 3600
        FIXTURES_REQUIRED kept_lock ENVIRONMENT "TMPDIR=${TESTS_TMPDIR};${arg_ENVIRONMENT}")
endfunction()
