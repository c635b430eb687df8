# SPDX-License-Identifier: Apache-2.0
# What every target of the house shares, and the two kinds of target: a room (a static library of all sources in one
# folder) and a program.

add_library(meridal_options INTERFACE)
target_include_directories(meridal_options INTERFACE ${CMAKE_SOURCE_DIR})
target_compile_options(meridal_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
  -Wnon-virtual-dtor -Woverloaded-virtual $<$<BOOL:${MERIDAL_WERROR}>:-Werror> -fno-strict-aliasing)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # GCC 12 sees null dereferences, overruns and dangling storage in inlined standard-library code that is sound.
  target_compile_options(meridal_options INTERFACE -Wno-null-dereference -Wno-maybe-uninitialized -Wno-restrict
    -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread)
  # It takes a source that is compiled together with others for a header.
  if(MERIDAL_UNITY)
    target_compile_options(meridal_options INTERFACE -Wno-subobject-linkage)
  endif()
endif()
# Sources that are compiled together shadow each other's names.
if(MERIDAL_UNITY)
  target_compile_options(meridal_options INTERFACE -Wno-shadow)
endif()
if(MERIDAL_SANITIZE)
  target_compile_options(meridal_options INTERFACE -fsanitize=${MERIDAL_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all)
  target_link_options(meridal_options INTERFACE -fsanitize=${MERIDAL_SANITIZE})
  if(MERIDAL_SANITIZE MATCHES undefined)
    # A null that is followed ends the program anyway, and objects' sizes are not known without more optimisation; looking
    # for both takes a sixth of the compiler's time.
    target_compile_options(meridal_options INTERFACE -fno-sanitize=null,object-size)
  endif()
  if(MERIDAL_SANITIZE MATCHES thread AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(meridal_options INTERFACE -Wno-tsan)
  endif()
endif()

# What nothing refers to is left out of the programs. Where no pass goes through, code is compiled for size: it is read from
# the disk and takes memory, and how fast it runs is not felt. A pass itself would take half as many instructions again.
option(MERIDAL_COMPACT "Leave out what is not used, and compile for size where speed is not felt" OFF)
add_library(meridal_small INTERFACE)
if(MERIDAL_COMPACT)
  target_compile_options(meridal_small INTERFACE -Os)
  target_compile_options(meridal_options INTERFACE -ffunction-sections -fdata-sections)
  target_link_options(meridal_options INTERFACE $<IF:$<BOOL:${APPLE}>,-Wl$<COMMA>-dead_strip,-Wl$<COMMA>--gc-sections>)
endif()

# The headers that nearly every source ends up including, parsed once a build and not once a source. Sources include what
# they use all the same: tools/lint compiles every header alone. Not for two languages at once, so not on a Mac.
if(NOT APPLE)
  file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/pch/common.cpp CONTENT "")
  set(kinds pch)
  if(MERIDAL_COMPACT)
    list(APPEND kinds pch_small)
  endif()
  foreach(kind IN LISTS kinds)
    add_library(meridal_${kind} STATIC ${CMAKE_BINARY_DIR}/pch/common.cpp)
    target_link_libraries(meridal_${kind} PRIVATE meridal_options meridal::json meridal::fmt meridal::threads)
    target_precompile_headers(meridal_${kind} PRIVATE <nlohmann/json.hpp> <fmt/format.h> <algorithm> <filesystem>
      <functional> <map> <memory> <optional> <string> <string_view> <variant> <vector>)
  endforeach()
  if(TARGET meridal_pch_small)
    target_link_libraries(meridal_pch_small PRIVATE meridal_small)
  endif()
endif()
# What a target shares with all: the headers, and whether it is compiled for size.
function(meridal_compiled target isSmall)
  set(headers meridal_pch)
  if(isSmall)
    target_link_libraries(${target} PRIVATE meridal_small)
    if(TARGET meridal_pch_small)
      set(headers meridal_pch_small)
    endif()
  endif()
  if(TARGET ${headers})
    target_precompile_headers(${target} REUSE_FROM ${headers})
  endif()
endfunction()

# The sources of one folder as a few large ones: what they include is read once for all of them, which takes a fifth of the
# time. Two sources of a folder then cannot have different things of one name, even in unnamed namespaces. glibc's
# net/if.h and the kernel's linux/if.h say the same things, and so do libpcap and the kernel on BPF, so who needs the former
# of each stays alone.
function(meridal_together target)
  get_target_property(sources ${target} SOURCES)
  foreach(source IN LISTS sources)
    get_filename_component(folder ${source} DIRECTORY)
    file(RELATIVE_PATH folder ${CMAKE_SOURCE_DIR} ${folder})
    string(MAKE_C_IDENTIFIER "${folder}" folder)
    file(STRINGS ${source} alone REGEX "#include <(net/if.h|pcap)" LIMIT_COUNT 1)
    if(alone)
      continue()
    endif()
    math(EXPR group "0${count_${folder}} / 14")
    math(EXPR count_${folder} "0${count_${folder}} + 1")
    set_source_files_properties(${source} PROPERTIES UNITY_GROUP ${folder}_${group})
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
endfunction()

# meridal_room(FOLDER [SMALL] DEPENDS ... PRIVATE_DEPENDS ...): the library meridal_FOLDER, slashes as underscores. main.*
# belongs to a program, not to the room. SMALL is for rooms that no pass goes through.
function(meridal_room folder)
  cmake_parse_arguments(room "SMALL" "" "DEPENDS;PRIVATE_DEPENDS" ${ARGN})
  string(REPLACE "/" "_" name meridal_${folder})
  set(patterns ${folder}/*.cpp ${folder}/*.mm)
  if(folder MATCHES "^(client|collectors|platform/(linux|macos))$") # these have rooms of their own
    list(APPEND patterns ${folder}/*/*.cpp ${folder}/*/*.mm)
  endif()
  file(GLOB sources CONFIGURE_DEPENDS ${patterns})
  list(FILTER sources EXCLUDE REGEX "/main\\.[a-z.]+$")
  if(NOT APPLE)
    list(FILTER sources EXCLUDE REGEX "\\.mm$|/transport/XPC")
  endif()
  if(sources)
    add_library(${name} STATIC ${sources})
    target_link_libraries(${name} PUBLIC meridal_options ${room_DEPENDS} PRIVATE ${room_PRIVATE_DEPENDS})
    meridal_compiled(${name} ${room_SMALL})
    if(MERIDAL_UNITY)
      meridal_together(${name})
    endif()
  else()
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE meridal_options ${room_DEPENDS})
  endif()
endfunction()

# meridal_program(NAME SOURCES ... DEPENDS ...)
function(meridal_program name)
  cmake_parse_arguments(program "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${program_SOURCES})
  target_link_libraries(${name} PRIVATE meridal_options ${program_DEPENDS})
  meridal_compiled(${name} TRUE)
endfunction()
