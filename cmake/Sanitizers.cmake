# SPDX-License-Identifier: Apache-2.0
# SFLOW_SANITIZE applies to everything, so that no object is left unchecked.

if(SFLOW_SANITIZE)
  add_compile_options(-fsanitize=${SFLOW_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${SFLOW_SANITIZE})
  if(SFLOW_SANITIZE MATCHES thread)
    # The thread sanitizer does not know fences, and the compiler says so where one is inlined. Asio's stand where
    # its mutex has the same effect.
    add_compile_definitions(BOOST_ASIO_DISABLE_FENCED_BLOCK)
  endif()
endif()
