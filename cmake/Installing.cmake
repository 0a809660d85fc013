# What "cmake --install" puts where; the packages in debian/ are made from it.
set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE STRING "Where libraries go")
include(GNUInstallDirs)
set(korvane_libexec libexec/korvane)
set(korvane_lib ${CMAKE_INSTALL_LIBDIR}/korvane)

# Programs find Debian's platform libraries where they are on the board, not in a cross build's root.
string(REPLACE "${CMAKE_SYSROOT}" "" CMAKE_INSTALL_RPATH "${ANDROID_LIBRARY_DIR}")

# install_programs(FOLDER TARGET...): those that this build has.
function(install_programs folder)
    foreach(target ${ARGN})
        if(TARGET ${target})
            install(TARGETS ${target} RUNTIME DESTINATION ${folder})
        endif()
    endforeach()
endfunction()

# What people build their own cameras with; packages of types without code have no library.
function(install_development)
    install(TARGETS libhidlbase libui libgui_bufferqueue_static
            korvane.hardware.camera.desktop-1.0 korvane.hardware.camera.desktop-2.0
            android.hardware.graphics.bufferqueue-1.0 android.hardware.graphics.bufferqueue-2.0
            android.hardware.graphics.common-1.2 android.hardware.media-1.0
        ARCHIVE DESTINATION ${korvane_lib})
    foreach(library libhidlbase libui libgui)
        install(DIRECTORY platform/${library}/include/ DESTINATION include/korvane)
    endforeach()
    install(DIRECTORY ${HIDL_OUTPUT_DIR}/ DESTINATION include/korvane FILES_MATCHING PATTERN "*.h")
    set(package ${CMAKE_INSTALL_LIBDIR}/cmake/KorvaneDesktopCamera)
    include(CMakePackageConfigHelpers)
    configure_package_config_file(cmake/KorvaneDesktopCameraConfig.cmake.in
        ${CMAKE_BINARY_DIR}/KorvaneDesktopCameraConfig.cmake INSTALL_DESTINATION ${package}
        PATH_VARS CMAKE_INSTALL_INCLUDEDIR korvane_lib NO_SET_AND_CHECK_MACRO)
    write_basic_package_version_file(${CMAKE_BINARY_DIR}/KorvaneDesktopCameraConfigVersion.cmake
        COMPATIBILITY SameMajorVersion)
    install(FILES ${CMAKE_BINARY_DIR}/KorvaneDesktopCameraConfig.cmake
        ${CMAKE_BINARY_DIR}/KorvaneDesktopCameraConfigVersion.cmake DESTINATION ${package})
endfunction()

function(install_everything)
    set_target_properties(korvane-gadget PROPERTIES INSTALL_RPATH "")
    install_programs(sbin korvane-gadget)
    install_programs(bin desktop-camera desktopctl)
    install_programs(${korvane_libexec} hwservicemanager korvane.hardware.camera.desktop-service)
    install(DIRECTORY docs/man/ DESTINATION share/man)
    install(FILES apps/desktopctl/desktopctl.bash RENAME desktopctl
        DESTINATION share/bash-completion/completions)
    install_development()
endfunction()
