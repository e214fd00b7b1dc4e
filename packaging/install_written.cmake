# SPDX-License-Identifier: Apache-2.0
# Runs when the tree is installed, with what packaging/CMakeLists.txt sets before: writes the units and manuals,
# which name where the programs are.
get_filename_component(prefix "${CMAKE_INSTALL_PREFIX}" ABSOLUTE)
set(BINDIR "${prefix}/${SWITCH_BINDIR}")
# As a unit spells a path: a blank would end it, % begins a specifier.
string(REPLACE "%" "%%" UNIT_BINDIR "${BINDIR}")
string(REPLACE " " "\\x20" UNIT_BINDIR "${UNIT_BINDIR}")

macro(write source place)
  message(STATUS "Installing: $ENV{DESTDIR}${prefix}/${place}")
  configure_file("${source}" "$ENV{DESTDIR}${prefix}/${place}" @ONLY NO_SOURCE_PERMISSIONS)
  list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${prefix}/${place}")
endmacro()

foreach(unit cdbd sflow-app sflow-mgr)
  write("${SWITCH_SOURCE_DIR}/packaging/systemd/${unit}.service" lib/systemd/system/${unit}.service)
endforeach()
foreach(file netconf.conf netconf-callhome@.service)
  write("${SWITCH_SOURCE_DIR}/packaging/ssh/${file}" share/sflow-switch/ssh/${file})
endforeach()
foreach(manual swcli.1 cdbd.8 cdb-netconf-relay.8 sflow-app.8 sflow-mgr.8)
  string(REGEX REPLACE ".*\\." "" section ${manual})
  write("${SWITCH_SOURCE_DIR}/docs/man/${manual}" share/man/man${section}/${manual})
endforeach()
