/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
#pragma once

#include <linux/types.h>

/* What the BPF programs and the daemon say to each other about network traffic. */

#ifdef __cplusplus
extern "C" {
#endif

enum {
    BPF_TRAFFIC_RECEIVED,
    BPF_TRAFFIC_SENT,
    BPF_TRAFFIC_DIRECTIONS,
    BPF_TRAFFIC_NAME = 16,
    BPF_TRAFFIC_ANCESTORS = 4,
};

/** What one process moved since its entry was made, on one processor. By direction. */
struct BpfTraffic {
    __u64 bytes[BPF_TRAFFIC_DIRECTIONS];
    __u64 packets[BPF_TRAFFIC_DIRECTIONS];
    __u64 bare; /* how many of the packets, in both directions, had no link header */
};

/** Who that process is. Noted when the entry is made, as the process may be gone when somebody asks. */
struct BpfTrafficOwner {
    char name[BPF_TRAFFIC_NAME];            /* ends with a 0 */
    __u64 ancestors[BPF_TRAFFIC_ANCESTORS]; /* identities, the parent first; 0 = no more */
};

/* Whose traffic it is, in one word, so that a socket changes hands at once: 22 bits of pid (no kernel has larger ones), one
 * bit for sockets of another network namespace than the daemon's, and the start time in clock ticks, as /proc has it. A pid
 * of 0 stands for all processes that found no room. */
#define BPF_TRAFFIC_PID_MASK 0x3FFFFFull
#define BPF_TRAFFIC_ELSEWHERE 0x400000ull
#define BPF_TRAFFIC_START_SHIFT 23
#define BPF_TRAFFIC_TICK 10000000ull /* ns; USER_HZ is 100 wherever these programs can be loaded */
/* Not a process: what waits at this moment, over all processors, for somebody to use the socket that it moved by. */
#define BPF_TRAFFIC_WAITING (1ull << BPF_TRAFFIC_START_SHIFT)

struct BpfTrafficSettings {
    __u64 network; /* cookie of the daemon's network namespace; written before anything is attached */
};

/* Interfaces by index, 64 in a word: a bit is set for those whose packets have no link header. */
#define BPF_TRAFFIC_INTERFACE_WORDS 1024

#ifdef __cplusplus
}
#endif
