# SPDX-License-Identifier: Apache-2.0
# Run by the build (cmake -P): writes SKELETON out of OBJECT, and TABLE, a C source that says where in the skeleton which
# map and which program is. The skeleton is C that C++ does not take, and its layout is that of one version of libbpf.

execute_process(COMMAND ${BPFTOOL} gen skeleton -L ${OBJECT} name ${NAME} OUTPUT_FILE ${SKELETON}
  ERROR_VARIABLE problem RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "bpftool gen skeleton ${OBJECT}: ${problem}")
endif()

function(entries kind member result)
  file(STRINGS ${SKELETON} lines REGEX "^\t\tstruct bpf_${kind}_desc [A-Za-z0-9_]+;")
  set(text "")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE ".* ([A-Za-z0-9_]+)$" "\\1" name ${line})
    string(APPEND text "    {\"${name}\", offsetof(struct ${NAME}, ${member}.${name})},\n")
  endforeach()
  set(${result} "${text}    {NULL, 0},\n" PARENT_SCOPE)
endfunction()
entries(map maps maps)
entries(prog progs programs)

file(WRITE ${TABLE} "#include <errno.h>
#include <string.h>

#include \"${NAME}.lskel.h\"

#include \"platform/linux/bpf/skeleton.h\"

#include <stddef.h>

static void* openSkeleton(void) { return ${NAME}__open(); }
static int loadSkeleton(void* skeleton) { return ${NAME}__load(skeleton); }
static void destroySkeleton(void* skeleton) { ${NAME}__destroy(skeleton); }
static const struct BpfSlot mapSlots[] = {
${maps}};
static const struct BpfSlot programSlots[] = {
${programs}};
const struct BpfSkeleton ${NAME}Skeleton = {
    .name = \"${NAME}\",
    .open = openSkeleton,
    .load = loadSkeleton,
    .destroy = destroySkeleton,
    .descriptorOfMap = offsetof(struct bpf_map_desc, map_fd),
    .entriesOfMap = offsetof(struct bpf_map_desc, max_entries),
    .descriptorOfProgram = offsetof(struct bpf_prog_desc, prog_fd),
    .maps = mapSlots,
    .programs = programSlots,
};
")
