# Toolchain of the "aarch64" preset: Debian's cross compiler, and a sysroot that scripts/sysroot made
# of Debian's arm64 packages. Programs run through the user-mode emulator, tests included.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_STRIP aarch64-linux-gnu-strip)
set(CMAKE_OBJDUMP aarch64-linux-gnu-objdump)

# Another sysroot, a device's own perhaps, is named with -DCMAKE_SYSROOT=FOLDER.
if(NOT CMAKE_SYSROOT)
    set(CMAKE_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-aarch64")
endif()
get_filename_component(CMAKE_SYSROOT "${CMAKE_SYSROOT}" ABSOLUTE)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static -L "${CMAKE_SYSROOT}")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
