# The device: 32-bit ARM with hardware floating point, by Debian's cross compiler. Its programs run under
# qemu-arm here.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

# For everything, including the tests: without it, readdir fails on the 64-bit directory offsets of the host. And no
# notes on how gcc 7 passed some arguments.
set(CMAKE_C_FLAGS_INIT -D_FILE_OFFSET_BITS=64)
set(CMAKE_CXX_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -Wno-psabi")

# What board.sh has got.
if(DEFINED ENV{TARVIO_BOARD})
  set(board $ENV{TARVIO_BOARD})
elseif(DEFINED ENV{XDG_CACHE_HOME})
  set(board $ENV{XDG_CACHE_HOME}/tarvio-board)
else()
  set(board $ENV{HOME}/.cache/tarvio-board)
endif()
# Libraries and headers come from there alone, never from the host.
set(CMAKE_FIND_ROOT_PATH ${board}/libraries)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_C_STANDARD_INCLUDE_DIRECTORIES ${board}/libraries/usr/include/arm-linux-gnueabihf)
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES ${board}/libraries/usr/include/arm-linux-gnueabihf)
# A program that names their directory names it for the libraries too that they need themselves.
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,--disable-new-dtags)

execute_process(
  COMMAND ${CMAKE_C_COMPILER} -print-file-name=libc.so.6
  OUTPUT_VARIABLE libc
  OUTPUT_STRIP_TRAILING_WHITESPACE)
file(REAL_PATH "${libc}" libc)
cmake_path(GET libc PARENT_PATH libc)
cmake_path(GET libc PARENT_PATH device_root)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${device_root})
