# SPDX-License-Identifier: Apache-2.0
# What makes a whole build quick, for continuous integration: with CMAKE_UNITY_BUILD the large headers that most
# sources include are compiled once. Builds without it show what a source forgets to include.

# Lets the targets of a folder (and of the folders in it) share the headers of the object library `shared`.
function(share_headers shared folder)
  get_target_property(definitions ${shared} COMPILE_DEFINITIONS)
  get_property(below DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
  foreach(each IN LISTS below)
    share_headers(${shared} ${each})
  endforeach()
  get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    get_target_property(own ${target} PRECOMPILE_HEADERS_REUSE_FROM)
    get_target_property(standard ${target} CXX_STANDARD)
    get_target_property(independent ${target} POSITION_INDEPENDENT_CODE)
    get_target_property(without ${target} DISABLE_PRECOMPILE_HEADERS)
    if(NOT without AND type MATCHES "STATIC_LIBRARY|EXECUTABLE" AND NOT own AND NOT target STREQUAL shared
       AND standard EQUAL CMAKE_CXX_STANDARD AND NOT independent)
      target_precompile_headers(${target} REUSE_FROM ${shared})
      # The compiler takes them only where what they look at is defined alike.
      target_compile_definitions(${target} PRIVATE ${definitions})
      target_compile_options(${target} PRIVATE -Wno-error=invalid-pch)
    endif()
  endforeach()
endfunction()

# The object library that compiles them: NAME HEADERS... DEFINITIONS...
function(add_shared_headers name)
  cmake_parse_arguments(given "" "" "HEADERS;DEFINITIONS" ${ARGN})
  file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/${name}.cpp CONTENT "// Only its headers count.\n")
  add_library(${name} OBJECT ${CMAKE_BINARY_DIR}/${name}.cpp)
  target_precompile_headers(${name} PRIVATE ${given_HEADERS})
  target_compile_definitions(${name} PRIVATE ${given_DEFINITIONS})
  target_link_libraries(${name} PRIVATE project_warnings)
endfunction()
