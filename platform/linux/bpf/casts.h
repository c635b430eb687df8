/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
/* Pointers that the kernel lets a program look through without knowing where they are from (Linux 6.2 and later): reads are plain
 * loads, guarded by the kernel, several times faster than calls to copy from an address. And loads through a pointer that the
 * verifier knows better would have it search the type data by name at each of them: to load a program would take a tenth of a
 * second or more instead of some milliseconds. */
#pragma once

#include "platform/linux/bpf/kernel.h"

extern void* bpf_rdonly_cast(const void* address, __u32 type) __ksym;

#define TASK(address)                                                                                                  \
    ((struct task_struct*)bpf_rdonly_cast((const void*)(address), bpf_core_type_id_kernel(struct task_struct)))
#define MEMORY(address)                                                                                                \
    ((struct mm_struct*)bpf_rdonly_cast((const void*)(address), bpf_core_type_id_kernel(struct mm_struct)))
