# SPDX-License-Identifier: Apache-2.0
# Cross-compiling for Windows with MinGW-w64, the variant with POSIX threads. Everything is linked statically, so that
# a library or program needs nothing but what comes with Windows.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${KELSYNC_WINDOWS_ARCH})
set(kelsync_triplet ${KELSYNC_WINDOWS_ARCH}-w64-mingw32)
set(CMAKE_C_COMPILER ${kelsync_triplet}-gcc-posix)
set(CMAKE_CXX_COMPILER ${kelsync_triplet}-g++-posix)
set(CMAKE_RC_COMPILER ${kelsync_triplet}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${kelsync_triplet} ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Windows 7 and newer; Boost and log4cplus want to be told.
add_compile_definitions(_WIN32_WINNT=0x0601 WINVER=0x0601 UNICODE _UNICODE)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine run ${KELSYNC_WINDOWS_ARCH})
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -static)
