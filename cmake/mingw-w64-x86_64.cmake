# Cross build for 64-bit Windows with Debian's mingw-w64 compiler (the posix thread model, for
# std::thread and std::mutex). Programs built here run under Wine through wine-run.sh, which
# ctest and gtest_discover_tests use as the emulator.
#
#   cmake -S . -B build/windows -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(ORVIK_MINGW_HOST x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${ORVIK_MINGW_HOST}-gcc-posix)
set(CMAKE_CXX_COMPILER ${ORVIK_MINGW_HOST}-g++-posix)
set(CMAKE_RC_COMPILER ${ORVIK_MINGW_HOST}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${ORVIK_MINGW_HOST})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The compiler's runtime (libstdc++, libgcc, winpthread) is linked as DLLs, so that a host and
# the library share one std::cout and one global locale; the project copies the runtime DLLs
# beside the library and installs them with it.

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/wine-run.sh)
