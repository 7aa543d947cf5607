# Toolchain: Debian's cross compiler for 32-bit ARM hard-float, against the packages that
# scripts/sysroot has unpacked.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

set(triplet arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})

if(DEFINED ENV{XDG_CACHE_HOME})
    set(cache "$ENV{XDG_CACHE_HOME}")
else()
    set(cache "$ENV{HOME}/.cache")
endif()
set(CMAKE_SYSROOT "${cache}/dockhand/armhf/root")
if(NOT EXISTS "${CMAKE_SYSROOT}")
    message(FATAL_ERROR "There is no ${CMAKE_SYSROOT}: run scripts/sysroot armhf first.")
endif()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Qt's code generators run on the host, whose packages have the same Qt version.
file(GLOB host_cmake "/usr/lib/*/cmake/Qt6HostInfo")
cmake_path(GET host_cmake PARENT_PATH host_cmake)
set(QT_HOST_PATH /usr)
set(QT_HOST_PATH_CMAKE_DIR "${host_cmake}")
set(Qt6LinguistTools_DIR "${host_cmake}/Qt6LinguistTools")

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L "${CMAKE_SYSROOT}"
    -E "QML2_IMPORT_PATH=${CMAKE_SYSROOT}/usr/lib/${triplet}/qt6/qml")
