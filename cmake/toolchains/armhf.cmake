# Controllers with a 32-bit ARM processor from version 7 on, Debian's armhf.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(triplet arm-linux-gnueabihf)
set(emulator qemu-arm-static)
# Files of 2 GB and more are to be told from missing ones. And without the compiler's notes on how its own version 6 passed
# arguments: nothing here is that old.
set(CMAKE_CXX_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -Wno-psabi")
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
