include(GoogleTest)

# add_unit_tests(NAME SOURCES file... LIBRARIES target...): a GoogleTest program of which ctest runs every case in a
# process of its own, so that no case sees the process-wide state of another. A case with a parameter is called by the
# parameter's name; what GoogleTest prints of the value may be an address, another one in each run.
function(add_unit_tests name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE project_options ${arg_LIBRARIES} GTest::gtest_main)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
    # The library looks the host's hook and the faked system calls up in the program.
    set_target_properties(${name} PROPERTIES ENABLE_EXPORTS ON)
    gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60)
endfunction()

# add_soak_test(NAME PROGRAM [FILTER filter] ENVIRONMENT VARIABLE=value...): the cases of a test program in one process,
# with the figures of a long run. The preset soak runs it; the others leave out what has its label.
function(add_soak_test name program)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "FILTER" "ENVIRONMENT")
    if(NOT arg_FILTER)
        set(arg_FILTER "*")
    endif()
    add_test(NAME ${name} COMMAND ${program} --gtest_filter=${arg_FILTER})
    set_tests_properties(${name} PROPERTIES LABELS soak ENVIRONMENT "${arg_ENVIRONMENT}" TIMEOUT 3600)
endfunction()
