include(GoogleTest)

# add_unit_tests(NAME SOURCES file... LIBRARIES target...): a GoogleTest program of which ctest runs every case in a
# process of its own, so that no case sees the process-wide state of another.
function(add_unit_tests name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE project_options ${arg_LIBRARIES} GTest::gtest_main)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
    # The library looks the host's hook and the faked system calls up in the program.
    set_target_properties(${name} PROPERTIES ENABLE_EXPORTS ON)
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60)
endfunction()
