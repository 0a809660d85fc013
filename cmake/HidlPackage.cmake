# HIDL packages: hidl-gen turns their .hal files into C++ at build time.
find_program(HIDL_GEN hidl-gen REQUIRED)
set(HIDL_OUTPUT_DIR ${CMAKE_BINARY_DIR}/hidl)

# The folder that the beginning of a package's name stands for. Ours begins below
# hardware/interfaces/current.txt, which freezes it for the phone: a frozen interface may only import
# frozen ones, and those of the platform are reduced here.
set(HIDL_ROOTS
    android.hidl:platform/interfaces/hidl
    android.hardware:platform/interfaces/hardware
    korvane.hardware.camera:hardware/interfaces/camera)

set(HIDL_GENERATED_FIXES ${CMAKE_CURRENT_LIST_DIR}/HidlGenerated.sed)

# hidl_package(NAME@X.Y SUBDIR FOLDER [OBJECT] [TYPES] [INTERFACES IFoo ...] [DEPENDS TARGET ...]):
# the package whose .hal files are in FOLDER, as the static library NAME-X.Y (a target can't have
# an '@' in its name). OBJECT is for what libhidlbase itself contains. DEPENDS are the packages that
# it imports from, defined before it.
function(hidl_package package)
    cmake_parse_arguments(HIDL "OBJECT;TYPES" "SUBDIR" "INTERFACES;DEPENDS" ${ARGN})
    string(REPLACE "@" "-" target ${package})
    string(REGEX MATCH "^[^@]*" name ${package})
    string(REGEX MATCH "[^@]*$" version ${package})
    string(REPLACE "." "/" folder ${name})
    set(output ${HIDL_OUTPUT_DIR}/${folder}/${version})

    set(hals)
    set(headers)
    set(sources)
    if(HIDL_TYPES)
        list(APPEND hals types.hal)
        list(APPEND headers types.h hwtypes.h)
        list(APPEND sources types.cpp)
    endif()
    foreach(interface ${HIDL_INTERFACES})
        string(SUBSTRING ${interface} 1 -1 base)
        list(APPEND hals ${interface}.hal)
        list(APPEND headers I${base}.h IHw${base}.h BnHw${base}.h BpHw${base}.h Bs${base}.h)
        list(APPEND sources ${base}All.cpp)
    endforeach()
    list(TRANSFORM hals PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/${HIDL_SUBDIR}/)
    list(TRANSFORM headers PREPEND ${output}/)
    list(TRANSFORM sources PREPEND ${output}/)
    foreach(depend ${HIDL_DEPENDS})
        get_target_property(imported ${depend} HIDL_FILES)
        list(APPEND hals ${imported})
    endforeach()
    list(REMOVE_DUPLICATES hals)

    list(TRANSFORM HIDL_ROOTS PREPEND "-r;" OUTPUT_VARIABLE roots)
    set(generate ${HIDL_GEN} -R -p ${CMAKE_SOURCE_DIR} ${roots} -o ${HIDL_OUTPUT_DIR})
    add_custom_command(OUTPUT ${headers} ${sources}
        COMMAND ${CMAKE_COMMAND} -E rm -rf ${output}
        COMMAND ${generate} -L c++-headers ${package}
        COMMAND ${generate} -L c++-sources ${package}
        COMMAND sed -i -f ${HIDL_GENERATED_FIXES} ${sources}
        DEPENDS ${hals} ${HIDL_GENERATED_FIXES}
        COMMENT "Generating ${package}"
        VERBATIM)

    # Packages that need each other's headers wait for the generated code, not for the library.
    add_custom_target(${target}-cpp DEPENDS ${headers} ${sources})

    if(HIDL_OBJECT)
        add_library(${target} OBJECT ${sources} ${headers})
        target_link_libraries(${target} PUBLIC libhidlbase_headers ${HIDL_DEPENDS})
    else()
        add_library(${target} STATIC ${sources} ${headers})
        set_target_properties(${target} PROPERTIES PREFIX "" OUTPUT_NAME ${package})
        target_link_libraries(${target} PUBLIC libhidlbase ${HIDL_DEPENDS})
    endif()
    set_target_properties(${target} PROPERTIES HIDL_FILES "${hals}")
    target_include_directories(${target} SYSTEM PUBLIC ${HIDL_OUTPUT_DIR})
endfunction()
