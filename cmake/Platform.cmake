# SPDX-License-Identifier: Apache-2.0
# Which platform the daemon is built on: the embedded one of this tree, or a switch's SDK.
#
# Defines the interface target `platform_contract`: what src/daemon may see (the contract's headers,
# Boost's Any and System, zlog, the generated schema header), and `platform_library`: what the
# daemon's program is linked with.

set(SFLOW_PLATFORM "embedded" CACHE STRING "Platform under the daemon: embedded or sdk")
set_property(CACHE SFLOW_PLATFORM PROPERTY STRINGS embedded sdk)
set(SFLOW_SDK_DIR "" CACHE PATH "With SFLOW_PLATFORM=sdk: the SDK's root (include/, lib/)")

add_library(platform_contract INTERFACE)
add_library(platform_library INTERFACE)
find_package(Boost REQUIRED COMPONENTS system)
target_link_libraries(platform_contract INTERFACE Boost::headers Boost::system)

if(SFLOW_PLATFORM STREQUAL "sdk")
  if(NOT IS_DIRECTORY "${SFLOW_SDK_DIR}/include")
    message(FATAL_ERROR "SFLOW_SDK_DIR=\"${SFLOW_SDK_DIR}\" has no include directory; point it at the SDK's root")
  endif()
  target_include_directories(platform_contract SYSTEM INTERFACE ${SFLOW_SDK_DIR}/include)
  file(GLOB sdk_libraries ${SFLOW_SDK_DIR}/lib/*.so ${SFLOW_SDK_DIR}/lib/*.a)
  target_link_libraries(platform_library INTERFACE ${sdk_libraries})
elseif(SFLOW_PLATFORM STREQUAL "embedded")
  target_include_directories(platform_contract INTERFACE ${CMAKE_SOURCE_DIR}/src/platform/contract)
else()
  message(FATAL_ERROR "SFLOW_PLATFORM=\"${SFLOW_PLATFORM}\" is neither embedded nor sdk")
endif()
include(Zlog)
