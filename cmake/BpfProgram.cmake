# SPDX-License-Identifier: Apache-2.0
# A program that runs in the kernel: C for the BPF machine, wrapped into a header by bpftool. Its output depends on no
# running kernel, so it is built wherever clang can make BPF code.
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBBPF REQUIRED IMPORTED_TARGET GLOBAL libbpf>=1.0)
find_program(BPF_CLANG NAMES clang clang-14 clang-15 clang-16 REQUIRED)
find_program(BPFTOOL bpftool PATHS /usr/sbin /sbin REQUIRED)

set(bpf_folder ${CMAKE_SOURCE_DIR}/src/capture/bpf)

# Gives the target the header capture/NAME.skel.h, made from NAME.bpf.c of that folder; DEPENDS are headers of it too.
function(target_bpf_program target name)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "DEPENDS")
  list(TRANSFORM arg_DEPENDS PREPEND ${bpf_folder}/)
  set(generated ${CMAKE_BINARY_DIR}/generated/capture)
  set(object ${generated}/${name}.bpf.o)
  set(skeleton ${generated}/${name}.skel.h)
  file(MAKE_DIRECTORY ${generated})
  add_custom_command(
    OUTPUT ${skeleton}
    COMMAND ${BPF_CLANG} -target bpf -mcpu=v3 -O2 -g -Wall -Wextra -Werror
            -I/usr/include/${CMAKE_LIBRARY_ARCHITECTURE} -c ${bpf_folder}/${name}.bpf.c -o ${object}.full
    # Drops what only a debugger needs.
    COMMAND ${BPFTOOL} gen object ${object} ${object}.full
    COMMAND ${BPFTOOL} gen skeleton ${object} name ${name} > ${skeleton}.part
    COMMAND ${CMAKE_COMMAND} -E rename ${skeleton}.part ${skeleton}
    DEPENDS ${bpf_folder}/${name}.bpf.c ${arg_DEPENDS}
    COMMENT "Building the program ${name} for the kernel"
    VERBATIM)
  target_sources(${target} PRIVATE ${skeleton})
  target_include_directories(${target} SYSTEM PRIVATE ${CMAKE_BINARY_DIR}/generated)
endfunction()
