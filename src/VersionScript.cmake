# SPDX-License-Identifier: Apache-2.0
# The shared library exports the functions of the public header alone. Hidden visibility does not cover what templates
# of other libraries leave in it.
find_package(Python3 REQUIRED COMPONENTS Interpreter)

set(make_def ${CMAKE_CURRENT_SOURCE_DIR}/make_def.py)
set(public_header ${PROJECT_SOURCE_DIR}/include/kelsyncpair/kelsyncpair.h)
set(version_script ${CMAKE_CURRENT_BINARY_DIR}/kelsyncpair.map)
add_custom_command(OUTPUT ${version_script}
  COMMAND ${Python3_EXECUTABLE} ${make_def} ${public_header} ${version_script}
  DEPENDS ${make_def} ${public_header} VERBATIM)
add_custom_target(kelsync_version_script DEPENDS ${version_script})
add_dependencies(kelsyncpair kelsync_version_script)
target_link_options(kelsyncpair PRIVATE LINKER:--version-script=${version_script})
set_target_properties(kelsyncpair PROPERTIES LINK_DEPENDS ${version_script})
