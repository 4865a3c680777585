# SPDX-License-Identifier: Apache-2.0
# The DLL from outside: by its exported names alone, and through its import libraries.
add_executable(windows_host windows_host.c)
target_include_directories(windows_host PRIVATE ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(windows_host PRIVATE kelsync_options)
target_link_options(windows_host PRIVATE -municode)
set_target_properties(windows_host PROPERTIES C_STANDARD 99 C_EXTENSIONS OFF)
add_dependencies(windows_host kelsyncpair)
foreach(mode keep reload threads)
  add_test(NAME windows_host.${mode} COMMAND windows_host $<TARGET_FILE_NAME:kelsyncpair> ${mode} windows_host-${mode})
  set_tests_properties(windows_host.${mode} PROPERTIES TIMEOUT 300 FAIL_REGULAR_EXPRESSION "Unhandled")
endforeach()

add_executable(import_library import_library.c)
target_link_libraries(import_library PRIVATE kelsyncpair kelsync_options)
add_test(NAME windows_host.import_mingw COMMAND import_library)

# kelsyncpair.lib with the compiler's and linker's MSVC manners, as far as that goes without MSVC's own headers.
find_program(KELSYNC_CLANG clang)
find_program(KELSYNC_LLD_LINK lld-link)
if(NOT KELSYNC_CLANG OR NOT KELSYNC_LLD_LINK)
  message(STATUS "kelsyncpair.lib is NOT tested: there is no clang, or no lld-link")
  return()
endif()
set(msvc_program ${PROJECT_BINARY_DIR}/import_library_msvc.exe)
set(msvc_object ${CMAKE_CURRENT_BINARY_DIR}/import_library_msvc.obj)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/msvc/wchar.h "#include <stddef.h>\n")
add_custom_command(OUTPUT ${msvc_program}
  COMMAND ${KELSYNC_CLANG} --target=${KELSYNC_WINDOWS_ARCH}-pc-windows-msvc -ffreestanding
    -I${CMAKE_CURRENT_BINARY_DIR}/msvc -I${PROJECT_SOURCE_DIR}/include
    -c ${CMAKE_CURRENT_SOURCE_DIR}/import_library.c -o ${msvc_object}
  COMMAND ${KELSYNC_LLD_LINK} /nologo /entry:main /nodefaultlib /subsystem:console /safeseh:no /out:${msvc_program}
    ${msvc_object} ${PROJECT_BINARY_DIR}/kelsyncpair.lib
  DEPENDS import_library.c kelsync_msvc_library ${PROJECT_SOURCE_DIR}/include/kelsyncpair/kelsyncpair.h VERBATIM)
add_custom_target(import_library_msvc ALL DEPENDS ${msvc_program})
add_test(NAME windows_host.import_msvc COMMAND ${CMAKE_CROSSCOMPILING_EMULATOR} ${msvc_program})
set_tests_properties(windows_host.import_mingw windows_host.import_msvc
  PROPERTIES TIMEOUT 60 FAIL_REGULAR_EXPRESSION "Unhandled")
