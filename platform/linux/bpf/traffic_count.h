/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
/* Sums of network bytes by process. Included by the programs that find out whose they are. */
#pragma once

#include "platform/linux/bpf/sockets.h"
#include "platform/linux/bpf/traffic_record.h"

/* Where the including program has no better way to look at a task. */
#ifndef TASK
#define TASK(task) (task)
#endif

/* By identity, see traffic_record.h. The daemon makes the entries that are no process's before it attaches anything, and takes
 * away those that stand still. */
struct {
    __uint(type, BPF_MAP_TYPE_PERCPU_HASH);
    __uint(max_entries, 16384);
    __uint(map_flags, BPF_F_NO_PREALLOC);
    __type(key, __u64);
    __type(value, struct BpfTraffic);
} traffic SEC(".maps");

/* Who is behind an entry of `traffic`: made right after it by whoever made that, taken out by the daemon when it has seen both. */
struct {
    __uint(type, BPF_MAP_TYPE_HASH);
    __uint(max_entries, 16384);
    __uint(map_flags, BPF_F_NO_PREALLOC);
    __type(key, __u64);
    __type(value, struct BpfTrafficOwner);
} people SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(max_entries, 1);
    __type(key, __u32);
    __type(value, struct BpfTrafficSettings);
} settings SEC(".maps");

static __always_inline __u64 place_of(__u64 network)
{
    const __u32 first = 0;
    const struct BpfTrafficSettings* own = bpf_map_lookup_elem(&settings, &first);
    return own && own->network != network ? BPF_TRAFFIC_ELSEWHERE : 0;
}

static __always_inline __u64 identity_of(const struct task_struct* task, __u64 place)
{
    const struct task_struct* own = TASK(task);
    const __u64 start = own->group_leader->start_boottime / BPF_TRAFFIC_TICK;
    return start << BPF_TRAFFIC_START_SHIFT | place | ((__u64)own->tgid & BPF_TRAFFIC_PID_MASK);
}

static __always_inline void describe(struct BpfTrafficOwner* owner, const struct task_struct* task)
{
    const struct task_struct* ancestor = TASK(task)->group_leader;
#pragma unroll
    for (int i = 0; i < BPF_TRAFFIC_NAME - 1; ++i) {
        owner->name[i] = ancestor->comm[i];
    }
    owner->name[BPF_TRAFFIC_NAME - 1] = 0;
#pragma unroll
    for (int i = 0; i < BPF_TRAFFIC_ANCESTORS; ++i) {
        ancestor = ancestor->real_parent->group_leader; /* the idle task is its own */
        owner->ancestors[i] = ancestor->tgid ? identity_of(ancestor, 0) : 0;
    }
}

static __always_inline int is_internet(const struct sock* socket)
{
    const __u16 family = socket->__sk_common.skc_family;
    return family == FAMILY_IPV4 || family == FAMILY_IPV6;
}

static __always_inline void add_sums(struct BpfTraffic* sums, int direction, __u64 bytes, __u64 packets, __u64 bare)
{
    /* One processor's own, yet an interrupt may come in between, and with it a packet. */
    __sync_fetch_and_add(&sums->bytes[direction], bytes);
    __sync_fetch_and_add(&sums->packets[direction], packets);
    if (bare) {
        __sync_fetch_and_add(&sums->bare, bare);
    }
}

static __always_inline void add_traffic(
    __u64 who, const struct BpfTrafficOwner* owner, int direction, __u64 bytes, __u64 packets, __u64 bare)
{
    struct BpfTraffic* sums = bpf_map_lookup_elem(&traffic, &who);
    if (!sums) {
        const struct BpfTraffic fresh = {};
        /* Of several processors that meet a new process at once, one makes the entry, and says whose it is. */
        if (bpf_map_update_elem(&traffic, &who, &fresh, BPF_NOEXIST) == 0) {
            bpf_map_update_elem(&people, &who, owner, BPF_ANY);
        }
        sums = bpf_map_lookup_elem(&traffic, &who);
    }
    if (!sums) {
        const __u64 nobody = who & BPF_TRAFFIC_ELSEWHERE;
        sums = bpf_map_lookup_elem(&traffic, &nobody);
        if (!sums) {
            return;
        }
    }
    add_sums(sums, direction, bytes, packets, bare);
}
