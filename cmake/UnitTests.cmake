include(GoogleTest)

# Every test is run by this program, which keeps it apart from the machine and from other tests.
set(APART ${PROJECT_BINARY_DIR}/tests/apart/bin/apart)
if(NOT TARGET apart)
    add_subdirectory(${PROJECT_SOURCE_DIR}/tests/apart ${PROJECT_BINARY_DIR}/tests/apart)
endif()

# add_test_support(NAME SOURCES file... [NEEDS support...] [LIBRARIES target...]): what several programs link, compiled once. A
# program gets every object file, and those of what is needed. From a static library it would get only the fakes that it
# names, and the fake of read() whenever it calls read().
function(add_test_support name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;NEEDS;LIBRARIES")
    add_library(${name}_objects OBJECT ${arg_SOURCES})
    target_include_directories(${name}_objects PRIVATE ${PROJECT_SOURCE_DIR})
    target_link_libraries(${name}_objects PRIVATE authchipdriver_options ${arg_LIBRARIES})
    set_target_properties(${name}_objects PROPERTIES POSITION_INDEPENDENT_CODE ON) # one program of ours preloads it
    add_library(${name} INTERFACE)
    target_sources(${name} INTERFACE $<TARGET_OBJECTS:${name}_objects>)
    target_include_directories(${name} INTERFACE ${PROJECT_SOURCE_DIR})
    target_link_libraries(${name} INTERFACE ${arg_NEEDS} ${arg_LIBRARIES})
endfunction()

# add_apart_test(NAME name [SHARES_LOCKS] [ENVIRONMENT VARIABLE=value...] COMMAND command...): add_test() for one that
# runs apart. Its environment contains what is named here, and what apart sets.
#   SHARES_LOCKS  it tests the lock between processes
function(add_apart_test)
    cmake_parse_arguments(PARSE_ARGV 0 arg "SHARES_LOCKS" "NAME" "ENVIRONMENT;COMMAND")
    set(apart ${APART})
    if(arg_SHARES_LOCKS)
        list(APPEND apart --shares-locks)
    endif()
    list(GET arg_COMMAND 0 program)
    if(TARGET ${program})
        list(REMOVE_AT arg_COMMAND 0)
        list(PREPEND arg_COMMAND ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${program}>)
    endif()
    add_test(NAME ${arg_NAME} COMMAND ${apart} ${arg_ENVIRONMENT} ${arg_COMMAND})
    set_tests_properties(${arg_NAME} PROPERTIES COST 1) # may wait for seconds: before the unit tests, which fill the gaps
endfunction()

# add_unit_tests(NAME [SHARES_LOCKS] SOURCES file... LIBRARIES target... [NOT_EMULATED filter]): a GoogleTest program of
# which ctest runs every case in a process of its own, so that no case sees the process-wide state of another. A case with
# a parameter is called by the parameter's name; what GoogleTest prints of the value may be an address, another one in
# each run.
#   SHARES_LOCKS  its locks are the system's, for programs that it starts; by default they are its own and its children's
#   NOT_EMULATED  the cases that no emulator can pass, as a filter of GoogleTest; see not_emulated()
function(add_unit_tests name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "SHARES_LOCKS" "NOT_EMULATED" "SOURCES;LIBRARIES")
    set(apart ${APART})
    if(arg_SHARES_LOCKS)
        list(APPEND apart --shares-locks)
    else()
        list(APPEND arg_LIBRARIES own_semaphores)
    endif()
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE authchipdriver_options by_hand ${arg_LIBRARIES} GTest::gtest_main)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
    add_dependencies(${name} apart)
    set_target_properties(${name} PROPERTIES
        ENABLE_EXPORTS ON # the library looks the host's hook and the faked system calls up in the program
        CROSSCOMPILING_EMULATOR "${apart};${CMAKE_CROSSCOMPILING_EMULATOR}") # what lists and runs the tests
    set(discovery NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60)
    if(arg_NOT_EMULATED)
        gtest_discover_tests(${name} ${discovery} TEST_FILTER "${arg_NOT_EMULATED}" PROPERTIES LABELS not-emulated)
        list(APPEND discovery TEST_FILTER "-${arg_NOT_EMULATED}")
    endif()
    gtest_discover_tests(${name} ${discovery})
endfunction()

# not_emulated(TEST...): these fail under an emulator although what they test is right; who calls it says why. The presets
# for other architectures leave out what has this label.
function(not_emulated)
    set_property(TEST ${ARGV} APPEND PROPERTY LABELS not-emulated)
endfunction()

# not_sanitized(TEST...): the same for what the sanitizers themselves need or do; the presets asan and tsan leave it out.
function(not_sanitized)
    set_property(TEST ${ARGV} APPEND PROPERTY LABELS not-sanitized)
endfunction()

# add_soak_test(NAME PROGRAM [FILTER filter] ENVIRONMENT VARIABLE=value...): the cases of a test program in one process,
# with the figures of a long run. The preset soak runs it; the others leave out what has its label.
function(add_soak_test name program)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "FILTER" "ENVIRONMENT")
    if(NOT arg_FILTER)
        set(arg_FILTER "*")
    endif()
    add_apart_test(NAME ${name} ENVIRONMENT ${arg_ENVIRONMENT} COMMAND ${program} --gtest_filter=${arg_FILTER})
    set_tests_properties(${name} PROPERTIES LABELS soak TIMEOUT 3600)
endfunction()
