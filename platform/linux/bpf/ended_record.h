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
    BPF_ENDED_PATIENCE = 128, /* periods, for twice of which the daemon remembers whom a pass has met */
};

enum {
    BPF_ENDED_KERNEL_THREAD = 1,
    BPF_ENDED_ITSELF = 2,  /* it is the known one: its figures stand alone */
    BPF_ENDED_AT_PASS = 4, /* it was there when a pass began; never told */
};

/** Who ended, as far as it matters to whom its figures go: of processes that no pass ever met, all that do the same work for
 * the same one are one. One that a pass may have met is told apart from all others. */
struct BpfEndedKey {
    __u64 knownStart; /* ns since boot; of the nearest of it and its ancestors that the latest pass has met */
    __u64 ownStart;   /* its own, where a pass may have met it, and may not */
    __s32 known;      /* its pid; 0 = none */
    __s32 own;        /* likewise; 0 = no pass has met it, or it is the known one */
    __u32 flags;      /* BPF_ENDED_* */
    __u32 user;       /* real user id */
    __u64 cgroup;     /* inode number of its folder in the unified hierarchy */
    __u32 period;     /* as the daemon counts them: only entries of the present one are added to */
    __u32 unused;
    /* Of itself, its parent and so on, up to right under the known one; empty where there are no more. */
    char names[BPF_ENDED_NAMES][BPF_ENDED_NAME];
};

/** Programs that add to entries right now, by whether their period is even or odd. */
struct BpfEndedAdding {
    __u32 programs[2];
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

/** Who may have been met by passes, by start times: ns since boot; 0 = there was no such pass. Passes leave out who starts
 * while they go on, so that nobody is met who started at the latest one's beginning or later. */
struct BpfEndedLimits {
    __u64 beginning; /* of the latest pass */
    __u64 metBefore; /* beginning of the latest whole pass */
    __u64 surelyMet; /* beginning of the one before that: who is older has been met, be it that one of them missed it */
};

/** The daemon says when a pass begins, and when one was whole. */
struct BpfEndedPass {
    __u64 beginning; /* in: 0 begins one, and its beginning is put here; else it is whole */
};

#ifdef __cplusplus
}
#endif
