# SPDX-License-Identifier: Apache-2.0
# Runs between the package's own installation and its packing: makes of the installed tree what Debian's packages have.
set(tree "${CPACK_TEMPORARY_INSTALL_DIRECTORY}")
set(documents "${tree}/usr/share/doc/sflow-switch")

# Debian has the licence's text and names it in the copyright file; the changelog takes Debian's form.
file(REMOVE "${documents}/LICENSE" "${documents}/CHANGELOG.md")
configure_file("${CMAKE_CURRENT_LIST_DIR}/copyright" "${documents}/copyright" COPYONLY)
configure_file("${CMAKE_CURRENT_LIST_DIR}/lintian-overrides" "${tree}/usr/share/lintian/overrides/sflow-switch" COPYONLY)
execute_process(
  COMMAND "${CMAKE_CURRENT_LIST_DIR}/write_changelog" "${CMAKE_CURRENT_LIST_DIR}/../../CHANGELOG.md"
    "${CPACK_PACKAGE_VERSION}" "${CPACK_DEBIAN_PACKAGE_MAINTAINER}"
  OUTPUT_FILE "${documents}/changelog" COMMAND_ERROR_IS_FATAL ANY)

file(GLOB manuals "${tree}/usr/share/man/man*/*")
foreach(text ${manuals} "${documents}/changelog")
  execute_process(COMMAND gzip -9nf "${text}" COMMAND_ERROR_IS_FATAL ANY)
endforeach()
