# SPDX-License-Identifier: Apache-2.0
# SFLOW_COVERAGE counts the lines that run, in everything. Counts are written when a process ends in order; with the
# library that _exit is led to, also when it ends by that, as a child that checks something for its parent does.

if(SFLOW_COVERAGE)
  add_compile_options(--coverage)
  add_link_options(--coverage -Wl,--wrap=_exit)
  add_library(coverage_exit STATIC ${CMAKE_CURRENT_LIST_DIR}/coverage_exit.cpp)
  link_libraries(coverage_exit)
  # After all others, for libraries of the system call it too.
  string(APPEND CMAKE_CXX_STANDARD_LIBRARIES " ${CMAKE_BINARY_DIR}/libcoverage_exit.a")
endif()
