# The platform's libraries that Debian packages: liblog, libutils, libcutils.
find_path(ANDROID_INCLUDE_DIR utils/RefBase.h PATHS /usr/include/android REQUIRED)
find_library(ANDROID_UTILS utils PATH_SUFFIXES android REQUIRED)
find_library(ANDROID_CUTILS cutils PATH_SUFFIXES android REQUIRED)
find_library(ANDROID_LOG log PATH_SUFFIXES android REQUIRED)
get_filename_component(ANDROID_LIBRARY_DIR ${ANDROID_UTILS} DIRECTORY)

# Debian keeps them outside the linker's search path; the programs remember where.
set(CMAKE_BUILD_RPATH ${ANDROID_LIBRARY_DIR})

add_library(debian_android INTERFACE)
target_include_directories(debian_android SYSTEM INTERFACE ${ANDROID_INCLUDE_DIR})
target_link_libraries(debian_android INTERFACE ${ANDROID_UTILS} ${ANDROID_CUTILS} ${ANDROID_LOG}
    pthread)

if(SANITIZE MATCHES thread)
    # In front of libutils' own headers: replacements for what the sanitizer would misunderstand.
    target_include_directories(debian_android SYSTEM BEFORE INTERFACE
        ${CMAKE_SOURCE_DIR}/tests/support/tsan)
endif()

# platform_library(NAME SOURCE...): a static library of the port under its platform name. Its public
# headers are in the folder's include/, under the platform's include paths.
function(platform_library name)
    add_library(${name} STATIC ${ARGN})
    set_target_properties(${name} PROPERTIES PREFIX "")
    target_include_directories(${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/include)
    target_link_libraries(${name} PUBLIC debian_android PRIVATE korvane_warnings)
endfunction()
