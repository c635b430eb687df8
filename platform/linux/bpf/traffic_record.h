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
};

/** What one process moved since its entry was made, on one processor. By direction. */
struct BpfTraffic {
    __u64 bytes[BPF_TRAFFIC_DIRECTIONS];
    __u64 packets[BPF_TRAFFIC_DIRECTIONS];
    __u64 parent; /* pid, as it was when the entry was made; in one processor's part, 0 in the others */
};

/* Whose traffic it is, in one word, so that a socket changes hands at once: 22 bits of pid (no kernel has larger ones), one
 * bit for sockets of another network namespace than the daemon's, and the start time in clock ticks, as /proc has it. A pid
 * of 0 stands for all processes that found no room. */
#define BPF_TRAFFIC_PID_MASK 0x3FFFFFull
#define BPF_TRAFFIC_ELSEWHERE 0x400000ull
#define BPF_TRAFFIC_START_SHIFT 23
#define BPF_TRAFFIC_TICK 10000000ull /* ns; USER_HZ is 100 wherever these programs can be loaded */

struct BpfTrafficSettings {
    __u64 network; /* cookie of the daemon's network namespace; written before anything is attached */
    __u64 guesses; /* how often a connection that came in was not claimed by a process in time */
};

#ifdef __cplusplus
}
#endif
