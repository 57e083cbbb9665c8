# Cross-compiles the engine and kestro-convert for 64-bit Windows with
# Debian's MinGW-w64 (g++-mingw-w64-x86-64-posix):
#   cmake -S . -B build-win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake
# The programs carry their C++ runtime, so each .exe runs alone; wine, when
# installed, runs the tests (ctest --test-dir build-win).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(KESTRO_MINGW x86_64-w64-mingw32)

# The posix thread model: std::thread and friends without extra libraries.
find_program(CMAKE_CXX_COMPILER NAMES ${KESTRO_MINGW}-g++-posix ${KESTRO_MINGW}-g++ REQUIRED)
# GoogleTest's project checks a C compiler too.
find_program(CMAKE_C_COMPILER NAMES ${KESTRO_MINGW}-gcc-posix ${KESTRO_MINGW}-gcc REQUIRED)
find_program(CMAKE_RC_COMPILER NAMES ${KESTRO_MINGW}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${KESTRO_MINGW})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")

# ctest runs the tests under wine, through the script that keeps wine quiet
# and in a folder of its own.
find_program(KESTRO_WINE NAMES wine)
if(KESTRO_WINE)
  get_filename_component(KESTRO_SOURCE ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${KESTRO_SOURCE}/scripts/wine-run.sh)
endif()
