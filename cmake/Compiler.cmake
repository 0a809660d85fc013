# Language level, warnings and sanitizers for every target of the project.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g1")

# The annotations of locks are clang's, which checks them (scripts/check).
add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-attributes>)

set(SANITIZE "" CACHE STRING "Sanitizers for everything that is built: address,undefined or thread")
if(SANITIZE)
    add_compile_options(-fsanitize=${SANITIZE} -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${SANITIZE})
    if(SANITIZE MATCHES undefined)
        add_compile_options(-fno-sanitize-recover=undefined
            $<$<CXX_COMPILER_ID:Clang>:-fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/unsanitized>)
    endif()
endif()

option(COVERAGE "Count which lines and branches run: scripts/coverage" OFF)
if(COVERAGE)
    add_compile_options(--coverage -fprofile-abs-path -fprofile-update=atomic)
    add_library(korvane_coverage STATIC ${CMAKE_SOURCE_DIR}/tests/support/coverage/CoverageDump.cpp)
    target_link_options(korvane_coverage INTERFACE --coverage -Wl,--undefined=korvane_coverage_dump
        -Wl,--wrap=_exit -Wl,--wrap=kill)
    link_libraries(korvane_coverage)
endif()

find_program(CCACHE ccache)
if(CCACHE)
    # Paths relative to the checkout, so that build folders beside each other share the cache.
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}
        CCACHE_NOHASHDIR=1 ${CCACHE})
endif()

# The warnings that the project's own code must not give; generated code is built without them.
add_library(korvane_warnings INTERFACE)
target_compile_options(korvane_warnings INTERFACE -Wall -Wextra -Werror -Wno-multichar)
