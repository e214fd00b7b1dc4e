# SFLOW_SANITIZE applies to everything, so that no object is left unchecked.

if(SFLOW_SANITIZE)
  add_compile_options(-fsanitize=${SFLOW_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${SFLOW_SANITIZE})
endif()
