# Tests in the test machine: each one boots it once and runs a script or a whole test program there.
# Two machines at most run at a time, and ctest counts two processors for each: they emulate two.
set(VM_ARCH amd64)
if(CMAKE_CROSSCOMPILING)
    set(VM_ARCH arm64)
endif()
set(NATIVE_BUILD ${CMAKE_BINARY_DIR} CACHE PATH
    "Build folder of the programs that look at what a test in the machine left: none of the machine's")

add_test(NAME vm.prepare COMMAND ${CMAKE_SOURCE_DIR}/vm/prepare)
set_tests_properties(vm.prepare PROPERTIES LABELS vm TIMEOUT 1800 ENVIRONMENT ARCH=${VM_ARCH}
    FIXTURES_SETUP vm_machine)
add_test(NAME vm.prepare-6.12 COMMAND ${CMAKE_SOURCE_DIR}/vm/prepare)
set_tests_properties(vm.prepare-6.12 PROPERTIES LABELS vm TIMEOUT 1800
    ENVIRONMENT "ARCH=${VM_ARCH};KERNEL=6.12" FIXTURES_SETUP vm_machine_6.12)

function(korvane_vm_add name timeout alone)
    add_test(NAME vm.${name} COMMAND ${CMAKE_SOURCE_DIR}/tests/vm/boot_test ${name} ${ARGN})
    get_property(machine GLOBAL PROPERTY korvane_vm_count)
    math(EXPR machine "(0${machine} + 1) % 2")
    set_property(GLOBAL PROPERTY korvane_vm_count ${machine})
    if(NOT timeout)
        set(timeout 300)
    endif()
    math(EXPR limit "${timeout} + 60")
    set_tests_properties(vm.${name} PROPERTIES LABELS vm TIMEOUT ${limit} PROCESSORS 2
        RUN_SERIAL ${alone} RESOURCE_LOCK vm_machine_${machine} FIXTURES_REQUIRED vm_machine
        ENVIRONMENT "ARCH=${VM_ARCH};KORVANE_BUILD=${CMAKE_BINARY_DIR};NATIVE_BUILD=${NATIVE_BUILD};TIMEOUT=${timeout}")
endfunction()

# korvane_vm_test(NAME SCRIPT [AFTER SCRIPT] [TIMEOUT SECONDS] [KERNEL 6.12] [ALONE]): SCRIPT (which
# sources tests/vm/lib.sh) runs in the machine, then AFTER natively, on what SCRIPT left in the shared
# folder. TIMEOUT bounds the machine's run (default 300). KERNEL is for what only the newer kernel
# survives. ALONE: no other test runs beside it, for what is measured against the clock.
function(korvane_vm_test name script)
    cmake_parse_arguments(VM "ALONE" "AFTER;TIMEOUT;KERNEL" "" ${ARGN})
    set(after)
    if(VM_AFTER)
        set(after --after ${CMAKE_CURRENT_SOURCE_DIR}/${VM_AFTER})
    endif()
    korvane_vm_add(${name} "${VM_TIMEOUT}" ${VM_ALONE} ${after}
        bash ${CMAKE_CURRENT_SOURCE_DIR}/${script})
    if(VM_KERNEL)
        set_property(TEST vm.${name} APPEND PROPERTY ENVIRONMENT "KERNEL=${VM_KERNEL}")
        set_property(TEST vm.${name} APPEND PROPERTY FIXTURES_REQUIRED vm_machine_${VM_KERNEL})
    endif()
endfunction()

# korvane_vm_gtest(NAME [SOURCES ...] [LIBS ...] [TIMEOUT SECONDS] [ALONE]): NAME.cpp beside the
# CMakeLists.txt, built natively and run as a whole, in one boot of the machine.
function(korvane_vm_gtest name)
    cmake_parse_arguments(VM "ALONE" "TIMEOUT" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${name}.cpp ${VM_SOURCES})
    target_link_libraries(${name} PRIVATE ${VM_LIBS} korvane_test_support GTest::gmock
        korvane_warnings)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    korvane_vm_add(${name} "${VM_TIMEOUT}" ${VM_ALONE} $<TARGET_FILE:${name}>)
endfunction()
