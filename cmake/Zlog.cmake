# SPDX-License-Identifier: Apache-2.0
# zlog: an installed one where there is one (CMAKE_PREFIX_PATH is respected), else our front over
# spdlog (src/platform/embedded/zlog). Either way the target is `zlog`; the sources see <zlog.h>.

find_path(ZLOG_INCLUDE_DIR zlog.h)
find_library(ZLOG_LIBRARY zlog)
if(ZLOG_INCLUDE_DIR AND ZLOG_LIBRARY)
  message(STATUS "zlog: ${ZLOG_LIBRARY}")
  set(SFLOW_ZLOG_FOUND TRUE)
  add_library(zlog UNKNOWN IMPORTED)
  set_target_properties(zlog PROPERTIES IMPORTED_LOCATION ${ZLOG_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${ZLOG_INCLUDE_DIR})
else()
  message(STATUS "zlog: not installed, building our front over spdlog")
  set(SFLOW_ZLOG_FOUND FALSE)
  add_subdirectory(${CMAKE_SOURCE_DIR}/src/platform/embedded/zlog ${CMAKE_BINARY_DIR}/zlog)
endif()
target_link_libraries(platform_contract INTERFACE zlog)
