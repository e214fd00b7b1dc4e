# SPDX-License-Identifier: Apache-2.0
# One library a folder: all sources that stand in it. What follows the name goes to target_link_libraries, and
# says what the folder may include.
function(add_folder_library name)
  file(GLOB sources CONFIGURE_DEPENDS *.cpp)
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/src)
  target_link_libraries(${name} ${ARGN} PRIVATE project_warnings)
endfunction()
