/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
#pragma once

#include <linux/types.h>

/* What the BPF programs and the daemon say to each other about processes that have ended. */

#ifdef __cplusplus
extern "C" {
#endif

enum {
    BPF_ENDED_NAME = 16,
    BPF_ENDED_NAMES = 4,
    BPF_ENDED_LEVELS = 16, /* of ancestors that are looked at */
    BPF_ENDED_FOLDERS = 4,
    BPF_ENDED_FOLDER_NAME = 128,
};

enum {
    BPF_ENDED_KERNEL_THREAD = 1,
    BPF_ENDED_ITSELF = 2, /* it is the known one: its figures stand alone */
};

/** Who ended, as far as it matters to whom its figures go: of processes that no pass ever met, all that do the same work for
 * the same one are one. */
struct BpfEndedKey {
    __u64 knownStart; /* ns since boot; of the nearest of it and its ancestors that the latest pass has met */
    __s32 known;      /* its pid; 0 = none */
    __u32 flags;      /* BPF_ENDED_* */
    __u64 cgroup;     /* inode number of its folder in the unified hierarchy */
    __u32 user;       /* real user id */
    __u32 period;     /* as the daemon counts them: only entries of the present one are added to */
    /* Of itself, its parent and so on, up to right under the known one; empty where there are no more. */
    char names[BPF_ENDED_NAMES][BPF_ENDED_NAME];
};

/** Of all threads over their whole lives. */
struct BpfEndedSums {
    __u64 processes;
    __u64 runTime;    /* ns on a processor */
    __u64 userTime;   /* of it, as ticks have found it: ns, which only tell the proportion */
    __u64 systemTime; /* likewise */
    __u64 readBytes;  /* from storage */
    __u64 writtenBytes;
    __u64 cancelledBytes;
    __u64 voluntarySwitches;
};

/** Where a control group lies, which may be gone when somebody asks: its folder's name, that of the one around it and so on. */
struct BpfEndedPlace {
    char folders[BPF_ENDED_FOLDERS][BPF_ENDED_FOLDER_NAME];
};

/** The daemon asks for the time before a pass, and says after it up to when processes were met. ns since boot. */
struct BpfEndedPass {
    __u64 metBefore; /* in: 0 asks for the time, which is put here; else notes it */
};

#ifdef __cplusplus
}
#endif
