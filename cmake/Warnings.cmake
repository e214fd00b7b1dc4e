# SPDX-License-Identifier: Apache-2.0
# The warnings that every target of this tree is built with: link `project_warnings`.

add_library(project_warnings INTERFACE)
target_compile_options(project_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual
  $<$<CXX_COMPILER_ID:GNU>:-Wsuggest-override>
  # Joined sources are no headers: a type of one file may well have members local to it.
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>>:-Wno-subobject-linkage>
  $<$<BOOL:${SFLOW_WERROR}>:-Werror>)
