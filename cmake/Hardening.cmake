# SPDX-License-Identifier: Apache-2.0
# What a fault in memory, or a library that somebody left in the wrong folder, is not to become. Beyond what the
# compiler does anyway; scripts/check-hardening looks for it in what was built.
include(CheckCXXSourceCompiles)
include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)

add_compile_options(-fstack-protector-strong)
if(MINGW)
  add_link_options(-fstack-protector-strong LINKER:--nxcompat,--dynamicbase)
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    add_link_options(LINKER:--high-entropy-va)
  endif()
else()
  add_link_options(LINKER:-z,relro,-z,now,-z,noexecstack)
endif()

# The sanitizers look closer, at the same calls. Without optimisation there is nothing to look at.
if(NOT KELSYNC_SANITIZE)
  set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
  check_cxx_source_compiles("#include <cstdlib>\nint main() {}" KELSYNC_FORTIFY_3)
  unset(CMAKE_REQUIRED_FLAGS)
  set(fortify -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=$<IF:$<BOOL:${KELSYNC_FORTIFY_3}>,3,2>)
  add_compile_options("$<$<NOT:$<CONFIG:Debug>>:${fortify}>")
endif()
