# Toolchain: Debian's cross compiler for 32-bit ARM hard-float. The libraries of that architecture
# are installed beside the machine's own (dpkg --add-architecture armhf).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(triplet arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})

# Qt's code generators of the machine; their CMake files come with the libraries.
set(QT_HOST_PATH /usr)
set(QT_HOST_PATH_CMAKE_DIR /usr/lib/${triplet}/cmake)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)
