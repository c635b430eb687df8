/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
#pragma once

#include <linux/types.h>

/* What the BPF programs and the daemon say to each other about processes. */

#ifdef __cplusplus
extern "C" {
#endif

/** One process: a thread group. Counters are cumulative since it started, of all its threads, those that ended included. */
struct BpfProcess {
    __s32 pid;
    __s32 parent;
    __u32 flags; /* BPF_PROCESS_* */
    __u32 user;  /* effective */
    __u32 threads;
    __u16 state; /* of the main thread, the kernel's bits */
    __s16 nice;
    __u64 start;          /* ns since boot, time asleep included */
    __u64 runTime;        /* ns on a processor; a thread that runs right now lags by up to a tick */
    __u64 userTime;       /* of it, as ticks have found it: ns, which only tell the proportion */
    __u64 systemTime;     /* likewise */
    __u64 readBytes;      /* from storage */
    __u64 writtenBytes;   /* counted when a page is made dirty */
    __u64 cancelledBytes; /* of those, dropped before they were written */
    __u64 voluntarySwitches;
    __s64 filePages; /* resident, as are the next but one; each sum may be below 0 while it moves */
    __s64 anonymousPages;
    __s64 swappedPages;
    __s64 sharedPages;
    __u64 cgroup;  /* inode number of its folder in the unified hierarchy */
    __u64 cgroups; /* stands for its groups in all hierarchies: another one as soon as it moves in any */
    char name[16]; /* ended by a zero */
};

enum {
    BPF_PROCESS_ENDED = 1, /* a zombie: not while any thread runs, even when the main one has ended */
    BPF_PROCESS_KERNEL_THREAD = 2,
    BPF_PROCESS_HAS_IO = 4,      /* the kernel accounts storage traffic to processes */
    BPF_PROCESS_TORN = 8,        /* threads ended all the while: what is summed up over threads is not to be used */
    BPF_PROCESS_LEAVING = 16,    /* each of its threads has begun to end, if not more */
    BPF_PROCESS_HAS_MEMORY = 32, /* its pages were summed up, in this pass or in one of the last */
};

/** What a pass is asked for, and what it answers. */
struct BpfPass {
    __u32 wantsMemory;
    __u32 processors; /* to sum up counters of; as many as the map of offsets holds */
    __u32 number;     /* of the pass: whose pages are summed up although they sleep, in turn */
    __u32 processes;  /* out: how many there were; those beyond the end of the map of records are missing */
};

#ifdef __cplusplus
}
#endif
