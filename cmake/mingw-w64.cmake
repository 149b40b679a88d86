# Cross-build for 64-bit Windows with Debian's mingw-w64 toolchain:
#   cmake -S . -B build-win -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake
# The posix thread model of the compiler gives std::thread and
# pthreads (winpthreads); everything is linked statically so that
# ardel.dll and the programs need no runtime DLL beside them.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(ARDEL_MINGW_PREFIX x86_64-w64-mingw32)

find_program(CMAKE_C_COMPILER NAMES ${ARDEL_MINGW_PREFIX}-gcc-posix ${ARDEL_MINGW_PREFIX}-gcc REQUIRED)
find_program(CMAKE_CXX_COMPILER NAMES ${ARDEL_MINGW_PREFIX}-g++-posix ${ARDEL_MINGW_PREFIX}-g++ REQUIRED)
find_program(CMAKE_RC_COMPILER NAMES ${ARDEL_MINGW_PREFIX}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${ARDEL_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")

# Programs built here (the catalog compiler, the tests) run under Wine.
find_program(ARDEL_WINE NAMES wine64 wine)
if(ARDEL_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${ARDEL_WINE})
endif()
