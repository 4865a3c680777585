# SPDX-License-Identifier: Apache-2.0
set(KELSYNC_WINDOWS_ARCH i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
