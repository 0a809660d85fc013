# Tests: one program for each test file, each test of it known to ctest by its own name.
find_package(GTest REQUIRED)
include(GoogleTest)

# What the sanitizer builds are made for.
add_custom_target(native_tests)

# What user-mode emulation can't run: programs that make requests of an unscripted V4L2 node, which the
# emulator refuses with an errno of its own, and programs that start programs of their processor, as a
# death test does. korvane_emulates(VARIABLE NAME SOURCE...): whether it can.
set(korvane_unemulated V4l2CtrlBaseTest)
function(korvane_emulates variable name)
    set(emulates TRUE)
    if(name IN_LIST korvane_unemulated)
        set(emulates FALSE)
    endif()
    foreach(source ${name}.cpp ${ARGN})
        cmake_path(ABSOLUTE_PATH source NORMALIZE)
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
        file(STRINGS ${source} starts REGEX "_DEATH\\(|_EXIT\\(|execv\\(")
        if(starts)
            set(emulates FALSE)
        endif()
    endforeach()
    set(${variable} ${emulates} PARENT_SCOPE)
endfunction()

function(korvane_test label name)
    cmake_parse_arguments(TEST "" "TIMEOUT" "SOURCES;LIBS" ${ARGN})
    if(NOT TEST_TIMEOUT)
        set(TEST_TIMEOUT 60)
    endif()
    add_executable(${name} ${name}.cpp ${TEST_SOURCES})
    target_link_libraries(${name} PRIVATE ${TEST_LIBS} korvane_test_support GTest::gmock
        korvane_warnings)
    # A test is compiled longer than it runs: with sanitizers, optimising it takes twice as long as not to.
    target_compile_options(${name} PRIVATE -O0)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    add_dependencies(native_tests ${name})
    if(CMAKE_CROSSCOMPILING)
        set_property(GLOBAL APPEND PROPERTY korvane_vm_native $<TARGET_FILE:${name}>)
        korvane_emulates(emulates ${name} ${TEST_SOURCES})
        if(NOT emulates)
            return()
        endif()
    endif()
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST
        PROPERTIES LABELS ${label} TIMEOUT ${TEST_TIMEOUT})
endfunction()

# korvane_unit_test(NAME [SOURCES ...] [LIBS ...] [TIMEOUT SECONDS]): NAME.cpp beside the
# CMakeLists.txt, run natively and in parallel with others.
function(korvane_unit_test name)
    korvane_test(unit ${name} ${ARGN})
endfunction()

# The same for tests of several classes in one process, run under every sanitizer as well.
function(korvane_integration_test name)
    korvane_test(integration ${name} ${ARGN})
endfunction()
