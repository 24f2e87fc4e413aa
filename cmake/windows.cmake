# Toolchain: 64-bit Windows programs, built on Debian by its MinGW-w64 compiler. The libraries come
# from scripts/windows-libraries.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
# The variant with POSIX threads, because the other one has no std::thread.
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

# Headers and libraries of this machine must not be used.
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32
    ${CMAKE_CURRENT_LIST_DIR}/../build/windows-libraries)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ZLIB_USE_STATIC_LIBS ON)

# Each library contains the compiler's runtime, because a host has none or another version.
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT -static)
endforeach()

# Programs that the build runs, such as tests, run under Wine in a private network.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/private-network
    ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine)
