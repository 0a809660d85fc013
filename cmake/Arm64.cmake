# The toolchain for 64-bit Arm, as the phone has it: Debian's cross compiler, everything
# included and linked from scripts/arm64-root, test programs under qemu's user-mode emulation.
#   cmake --toolchain cmake/Arm64.cmake -S . -B build-arm64 -G Ninja
execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/../scripts/arm64-root
    OUTPUT_VARIABLE CMAKE_SYSROOT OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Test programs are emulated with their own loader and libraries, but on this machine's files: qemu's
# own option for the libraries (-L) would take every other path that exists in that tree from there, too.
set(libraries ${CMAKE_SYSROOT}/usr/lib/aarch64-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static
    -E GST_PLUGIN_SYSTEM_PATH=${libraries}/gstreamer-1.0 -E GST_REGISTRY=${CMAKE_SYSROOT}.gstreamer
    ${CMAKE_SYSROOT}/lib/ld-linux-aarch64.so.1
    --library-path ${libraries}:${libraries}/android:${CMAKE_SYSROOT}/usr/lib/p7zip)

# Programs that the build runs are this machine's; all that goes into ours is the target's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${CMAKE_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
