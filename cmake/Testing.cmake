# Tests: one program for each test file, each test of it known to ctest by its own name.
find_package(GTest REQUIRED)
include(GoogleTest)

# What the sanitizer builds are made for.
add_custom_target(native_tests)

# User-mode emulation can't start a program of the other processor, and a death test starts its own
# again. korvane_starts_programs(VARIABLE SOURCE...): whether a test with these sources does so. It runs
# whole in the test machine then, see vm.native.
function(korvane_starts_programs variable)
    set(${variable} FALSE PARENT_SCOPE)
    foreach(source ${ARGN})
        cmake_path(ABSOLUTE_PATH source NORMALIZE)
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
        file(STRINGS ${source} starts REGEX "_DEATH\\(|_EXIT\\(|execv\\(")
        if(starts)
            set(${variable} TRUE PARENT_SCOPE)
        endif()
    endforeach()
endfunction()

function(korvane_test label name)
    cmake_parse_arguments(TEST "" "TIMEOUT" "SOURCES;LIBS" ${ARGN})
    if(NOT TEST_TIMEOUT)
        set(TEST_TIMEOUT 60)
    endif()
    add_executable(${name} ${name}.cpp ${TEST_SOURCES})
    target_link_libraries(${name} PRIVATE ${TEST_LIBS} korvane_test_support GTest::gmock
        korvane_warnings)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    add_dependencies(native_tests ${name})
    if(CMAKE_CROSSCOMPILING)
        korvane_starts_programs(starts_programs ${name}.cpp ${TEST_SOURCES})
        if(starts_programs)
            set_property(GLOBAL APPEND PROPERTY korvane_vm_native $<TARGET_FILE:${name}>)
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
