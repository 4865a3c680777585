# SPDX-License-Identifier: Apache-2.0
# What the DLL has beyond the shared library of other systems: the list of its exports, with the log4cplus that is
# linked into it, and import libraries for MinGW (libkelsyncpair.dll.a) and MSVC (kelsyncpair.lib).
find_package(Python3 REQUIRED COMPONENTS Interpreter)
find_program(KELSYNC_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 REQUIRED)

set(make_def ${CMAKE_CURRENT_SOURCE_DIR}/make_def.py)
set(public_header ${PROJECT_SOURCE_DIR}/include/kelsyncpair/kelsyncpair.h)
set(def_file ${CMAKE_CURRENT_BINARY_DIR}/kelsyncpair.def)
set(c_def_file ${CMAKE_CURRENT_BINARY_DIR}/kelsyncpair_c.def)
add_custom_command(OUTPUT ${def_file} ${c_def_file}
  COMMAND ${Python3_EXECUTABLE} ${make_def} ${public_header} ${CMAKE_NM} $<TARGET_FILE:log4cplus::log4cplus>
    ${def_file} ${c_def_file}
  DEPENDS ${make_def} ${public_header} VERBATIM)
configure_file(kelsyncpair.rc.in kelsyncpair.rc @ONLY)
target_sources(kelsyncpair PRIVATE ${def_file} ${CMAKE_CURRENT_BINARY_DIR}/kelsyncpair.rc
  platform/windows/LibraryMain.cpp)
target_link_libraries(kelsyncpair PRIVATE kelsync_options)
set_target_properties(kelsyncpair PROPERTIES PREFIX "")
# All of log4cplus, also what the library itself does not call: hosts configure the loggers through it.
target_link_libraries(kelsyncpair PRIVATE
  -Wl,--whole-archive $<TARGET_FILE:log4cplus::log4cplus> -Wl,--no-whole-archive)
target_link_options(kelsyncpair PRIVATE $<$<CONFIG:Release>:-s>)

set(msvc_library ${PROJECT_BINARY_DIR}/kelsyncpair.lib)
set(msvc_machine $<IF:$<EQUAL:${CMAKE_SIZEOF_VOID_P},8>,i386:x86-64,i386>)
add_custom_command(OUTPUT ${msvc_library}
  COMMAND ${KELSYNC_DLLTOOL} -m ${msvc_machine} -d ${c_def_file} -D kelsyncpair.dll -l ${msvc_library}
  DEPENDS ${c_def_file} VERBATIM)
add_custom_target(kelsync_msvc_library ALL DEPENDS ${msvc_library})
install(FILES ${msvc_library} TYPE LIB)
