# SPDX-License-Identifier: Apache-2.0
# The programs in platform/linux/bpf that run inside the kernel. Each NAME.bpf.c becomes a light skeleton: a C header that
# holds the object as the kernel's own loader program, so that loading needs no library and parses no kernel type data.
#
# meridal_bpf: a library of all skeletons, found by name through the table bpfSkeletons (platform/linux/bpf/skeleton.h).
# Without clang or bpftool the table is empty, and the daemon does without.

# clang-14, which the packages name, first; any newer one will do.
find_program(BPF_CLANG NAMES clang-14 clang)
# Not on the path of an ordinary user. It reads nothing of the running kernel and needs no rights. Ubuntu has one for each
# kernel, and on the path a script that only finds the one for the kernel that runs.
file(GLOB bpftool_folders /usr/lib/linux-tools/*)
find_program(BPFTOOL bpftool HINTS ${bpftool_folders} PATHS /usr/sbin /sbin)
find_path(BPF_INCLUDE_DIR bpf/skel_internal.h)

set(bpf_folder ${CMAKE_SOURCE_DIR}/platform/linux/bpf)
set(bpf_build ${CMAKE_BINARY_DIR}/bpf)
file(MAKE_DIRECTORY ${bpf_build})
set(bpf_sources)
# Some distributions have a bpftool that only works beside the kernel that it came with, or a clang without that target.
if(BPF_CLANG AND BPFTOOL AND BPF_INCLUDE_DIR)
  execute_process(COMMAND ${BPFTOOL} version RESULT_VARIABLE bpf_no_tool OUTPUT_QUIET ERROR_QUIET)
  execute_process(COMMAND ${BPF_CLANG} -target bpf -x c -c /dev/null -o /dev/null RESULT_VARIABLE bpf_no_target
    OUTPUT_QUIET ERROR_QUIET)
endif()
if(BPF_CLANG AND BPFTOOL AND BPF_INCLUDE_DIR AND NOT bpf_no_tool AND NOT bpf_no_target)
  enable_language(C)
  file(GLOB bpf_sources CONFIGURE_DEPENDS ${bpf_folder}/*.bpf.c)
else()
  message(STATUS "No BPF programs in this build: they take clang, bpftool and libbpf's headers")
endif()

set(bpf_tables)
set(bpf_declarations "")
set(bpf_entries "")
foreach(source IN LISTS bpf_sources)
  get_filename_component(name ${source} NAME)
  string(REPLACE ".bpf.c" "" name ${name})
  set(object ${bpf_build}/${name}.bpf.o)
  set(skeleton ${bpf_build}/${name}.lskel.h)
  set(table ${bpf_build}/${name}.c)
  # __TARGET_ARCH_ is for macros on registers, which these programs do not use: one object serves all little-endian hosts.
  add_custom_command(OUTPUT ${object}
    COMMAND ${BPF_CLANG} -target bpf -mcpu=v3 -std=gnu17 -O2 -g -Wall -Wextra -Werror -fdebug-prefix-map=${CMAKE_SOURCE_DIR}=.
      -isystem ${BPF_INCLUDE_DIR} -idirafter /usr/include/${CMAKE_LIBRARY_ARCHITECTURE} -I${CMAKE_SOURCE_DIR}
      -MD -MT ${object} -MF ${object}.d -c ${source} -o ${object}
    DEPENDS ${source} DEPFILE ${object}.d COMMENT "BPF program ${name}" VERBATIM)
  add_custom_command(OUTPUT ${skeleton} ${table}
    COMMAND ${CMAKE_COMMAND} -DBPFTOOL=${BPFTOOL} -DNAME=${name} -DOBJECT=${object} -DSKELETON=${skeleton} -DTABLE=${table}
      -P ${CMAKE_SOURCE_DIR}/cmake/BpfSkeleton.cmake
    DEPENDS ${object} ${CMAKE_SOURCE_DIR}/cmake/BpfSkeleton.cmake COMMENT "BPF skeleton ${name}" VERBATIM)
  list(APPEND bpf_tables ${table})
  string(APPEND bpf_declarations "extern const struct BpfSkeleton ${name}Skeleton;\n")
  string(APPEND bpf_entries "&${name}Skeleton, ")
endforeach()

# As C++, so that it can be built where there is no C: the table is all there is then.
file(GENERATE OUTPUT ${bpf_build}/skeletons.cpp CONTENT "#include \"platform/linux/bpf/skeleton.h\"
extern \"C\" {
${bpf_declarations}const struct BpfSkeleton* const bpfSkeletons[] = {${bpf_entries}nullptr};
}
")
add_library(meridal_bpf STATIC ${bpf_build}/skeletons.cpp ${bpf_tables})
# Not the house's warnings: what bpftool writes is not ours to mend.
target_include_directories(meridal_bpf PRIVATE ${CMAKE_SOURCE_DIR} ${bpf_build})
