# SPDX-License-Identifier: Apache-2.0
# What makes a fault in the programs harder to use: a privileged daemon reads what disks, kernels and clients say. The
# preset for users has it. A distribution that passes flags of its own may have it as well: these agree with them.
# tools/hardened looks for all of it in what was linked.
option(MERIDAL_HARDEN "Compile and link with the compiler's protections" OFF)
if(NOT MERIDAL_HARDEN)
  return()
endif()

include(CheckCXXCompilerFlag)
# Undefined first: some compilers bring another level of their own, and to define it twice is an error.
target_compile_options(meridal_options INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -D_GLIBCXX_ASSERTIONS
  -fstack-protector-strong -fPIE)
# By processor: shadow stacks and marked targets of jumps on x86-64, signed and marked ones on arm64.
foreach(flag -fstack-clash-protection -fcf-protection -mbranch-protection=standard)
  string(MAKE_C_IDENTIFIER "takes${flag}" takes)
  check_cxx_compiler_flag(${flag} ${takes})
  if(${takes})
    target_compile_options(meridal_options INTERFACE ${flag})
  endif()
endforeach()
if(NOT APPLE) # whose linker does all of this unasked
  target_link_options(meridal_options INTERFACE -pie -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()
