# The warnings that every target of this tree is built with: link `project_warnings`.

add_library(project_warnings INTERFACE)
target_compile_options(project_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual
  $<$<CXX_COMPILER_ID:GNU>:-Wsuggest-override>
  $<$<BOOL:${SFLOW_WERROR}>:-Werror>)
