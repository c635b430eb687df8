/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
#pragma once

#include <stddef.h>

/* What the build makes of one NAME.bpf.c: a block of memory that bpftool's generated C code knows how to open, load and
 * destroy, and where in it things are. C, because that code is. The daemon goes through BpfObject. */

#ifdef __cplusplus
extern "C" {
#endif

/** A map or a program by its name in the source. The list ends with a null name. */
struct BpfSlot {
    const char* name;
    size_t offset; /* bytes, from the start of the skeleton */
};

struct BpfSkeleton {
    const char* name;
    void* (*open)(void);             /* null without memory */
    int (*load)(void* skeleton);     /* 0, or minus the error number; then nothing is left in the kernel */
    void (*destroy)(void* skeleton); /* closes every descriptor; the kernel lets go of what nothing else holds */
    /* Offsets of ints from a slot: the descriptors, 0 before load, and how many entries a map gets, 0 for the source's. */
    size_t descriptorOfMap;
    size_t entriesOfMap;
    size_t descriptorOfProgram;
    const struct BpfSlot* maps;
    const struct BpfSlot* programs;
};

/** All that this build has. Ends with a null; nothing else is in it when the build had no BPF compiler. */
extern const struct BpfSkeleton* const bpfSkeletons[];

#ifdef __cplusplus
}
#endif
