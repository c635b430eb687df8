/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
/* What processes have used by their end, for those that end between two passes. The figures of a process are whole when the
 * kernel lets go of it, a while after its end, and then by no chance twice; who its ancestors were can only be told while its last
 * thread ends. Linux 6.1 and later. */

#include "platform/linux/bpf/kernel.h"

#include "platform/linux/bpf/ended_record.h"

struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(max_entries, 1);
    __type(key, __u32);
    __type(value, struct BpfEndedLimits);
} limits SEC(".maps");

/* By the address of a main thread whose process ends, until it is let go of. With the period in which it ended. */
struct {
    __uint(type, BPF_MAP_TYPE_HASH);
    __uint(max_entries, 16384);
    __uint(map_flags, BPF_F_NO_PREALLOC);
    __type(key, __u64);
    __type(value, struct BpfEndedKey);
} leaving SEC(".maps");

/* The daemon raises it before it looks at `ended`. */
struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(max_entries, 1);
    __type(key, __u32);
    __type(value, __u32);
} period SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(max_entries, 1);
    __type(key, __u32);
    __type(value, struct BpfEndedAdding);
} adding SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_HASH);
    __uint(max_entries, 16384);
    __uint(map_flags, BPF_F_NO_PREALLOC);
    __type(key, struct BpfEndedKey);
    __type(value, struct BpfEndedSums);
} ended SEC(".maps");

/* Of those that found no room in `ended`. */
struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(max_entries, 1);
    __type(key, __u32);
    __type(value, struct BpfEndedSums);
} beyond SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_HASH);
    __uint(max_entries, 1024);
    __uint(map_flags, BPF_F_NO_PREALLOC);
    __type(key, __u64); /* inode number */
    __type(value, struct BpfEndedPlace);
} places SEC(".maps");

/* Too large for a stack. */
struct {
    __uint(type, BPF_MAP_TYPE_PERCPU_ARRAY);
    __uint(max_entries, 1);
    __type(key, __u32);
    __type(value, struct BpfEndedPlace);
} drafts SEC(".maps");

static const __u32 first = 0;

SEC("syscall") int note_pass(struct BpfEndedPass* pass)
{
    struct BpfEndedLimits* known = bpf_map_lookup_elem(&limits, &first);
    if (!known) {
        return 1;
    }
    if (!pass->beginning) {
        const __u64 now = bpf_ktime_get_boot_ns();
        if (now > known->beginning) { /* around a sleep the clock may step back */
            known->beginning = now;
        }
        pass->beginning = known->beginning;
    } else {
        /* At the first whole pass processes may be there that are older than any record. */
        known->surelyMet = known->metBefore ? known->metBefore : pass->beginning;
        known->metBefore = pass->beginning;
    }
    return 0;
}

static __always_inline const struct kernfs_node* folder_around(const struct kernfs_node* folder)
{
    const struct kernfs_node___since_6_15* newer = (const void*)folder;
    if (bpf_core_field_exists(newer->__parent)) {
        return BPF_CORE_READ(newer, __parent);
    }
    return BPF_CORE_READ(folder, parent);
}

static __always_inline void note_place(const struct kernfs_node* folder, __u64 cgroup)
{
    if (bpf_map_lookup_elem(&places, &cgroup)) {
        return;
    }
    struct BpfEndedPlace* place = bpf_map_lookup_elem(&drafts, &first);
    if (!place) {
        return;
    }
    __builtin_memset(place, 0, sizeof *place);
#pragma unroll
    for (int i = 0; i < BPF_ENDED_FOLDERS; ++i) {
        if (folder) {
            bpf_probe_read_kernel_str(place->folders[i], BPF_ENDED_FOLDER_NAME, BPF_CORE_READ(folder, name));
            folder = folder_around(folder);
        }
    }
    bpf_map_update_elem(&places, &cgroup, place, BPF_NOEXIST);
}

/* Calls to copy from an address, a handful for each that ends: loads through a pointer that it knows have the verifier search the
 * type data by name, each for some tenths of a millisecond. */
#define READ(pointer, ...) BPF_CORE_READ(pointer, __VA_ARGS__)

/* Of several threads that end at once more than one may find that it is the last. All of them note the same. */
static __always_inline void note_leaving(const struct task_struct* task)
{
    const struct task_struct* leader = READ(task, group_leader);
    const struct BpfEndedLimits* known = bpf_map_lookup_elem(&limits, &first);
    const __u32* now = bpf_map_lookup_elem(&period, &first);
    if (!known || known->metBefore == 0 || !now) {
        return;
    }
    struct BpfEndedKey key = {.period = *now};
    key.flags = READ(leader, flags) & PF_KTHREAD ? BPF_ENDED_KERNEL_THREAD : 0;
    const __u64 start = READ(leader, start_boottime);
    key.flags |= start < known->surelyMet ? BPF_ENDED_ITSELF : 0;
    key.flags |= start < known->beginning ? BPF_ENDED_AT_PASS : 0;
    key.user = READ(leader, real_cred, uid.val);
    if (bpf_core_field_exists(leader->cgroups)) {
        const struct kernfs_node* folder = READ(leader, cgroups, dfl_cgrp, kn);
        key.cgroup = READ(folder, id);
        note_place(folder, key.cgroup);
    }
    const struct task_struct* ancestor = leader;
    for (int i = 0; i < BPF_ENDED_LEVELS; ++i) {
        const __u64 began = READ(ancestor, start_boottime);
        if (i == 0 ? key.flags & BPF_ENDED_ITSELF : began < known->metBefore) {
            key.known = READ(ancestor, tgid);
            key.knownStart = began;
            break;
        }
        if (i < BPF_ENDED_NAMES) {
            bpf_core_read(key.names[i], BPF_ENDED_NAME, &ancestor->comm);
            key.names[i][BPF_ENDED_NAME - 1] = 0;
        }
        ancestor = READ(ancestor, real_parent, group_leader);
    }
    const __u64 address = (__u64)leader;
    bpf_map_update_elem(&leaving, &address, &key, BPF_ANY);
}

SEC("tp_btf/sched_process_exit") int note_exit(__u64* arguments)
{
    const struct task_struct* task = (const struct task_struct*)arguments[0];
    if (READ(task, signal, live.counter) == 0) {
        note_leaving(task);
    }
    return 0;
}

static __always_inline void add_io(struct BpfEndedSums* sums, const struct task_io_accounting* own)
{
    __sync_fetch_and_add(&sums->readBytes, READ(own, read_bytes));
    __sync_fetch_and_add(&sums->writtenBytes, READ(own, write_bytes));
    __sync_fetch_and_add(&sums->cancelledBytes, READ(own, cancelled_write_bytes));
}

static __always_inline void add_sums(struct BpfEndedSums* sums, const struct task_struct* leader)
{
    const struct signal_struct* group = READ(leader, signal);
    __sync_fetch_and_add(&sums->runTime, READ(group, sum_sched_runtime));
    __sync_fetch_and_add(&sums->userTime, READ(group, utime));
    __sync_fetch_and_add(&sums->systemTime, READ(group, stime));
    __sync_fetch_and_add(&sums->voluntarySwitches, READ(group, nvcsw));
    if (HAS_OWN_IO(group, READ)) {
        add_io(sums, &group->ioac);
    } else if (bpf_core_field_exists(leader->ioac.read_bytes)) {
        add_io(sums, &leader->ioac);
    }
    __sync_fetch_and_add(&sums->processes, 1); /* last: whoever reads it first reads all of those that it counts */
}

/* No pass that begins from now on can meet the process. Whether one has that it may have seen is known to the daemon, which
 * does not remember everybody for ever: of one that nobody has waited for in a long time it is taken for granted. */
static __always_inline void name_if_met(struct BpfEndedKey* key, const struct task_struct* leader, __u32 now)
{
    const struct BpfEndedLimits* known = bpf_map_lookup_elem(&limits, &first);
    const int was_there = key->flags & BPF_ENDED_AT_PASS;
    const __u32 waited = now - key->period;
    const __u64 start = READ(leader, start_boottime);
    key->period = now;
    key->flags &= ~BPF_ENDED_AT_PASS;
    if (!known || key->flags & BPF_ENDED_ITSELF || start >= known->beginning) {
        return;
    }
    if (was_there && waited > BPF_ENDED_PATIENCE) {
        key->flags |= BPF_ENDED_ITSELF;
        key->known = READ(leader, tgid);
        key->knownStart = start;
    } else {
        key->own = READ(leader, tgid);
        key->ownStart = start;
    }
}

/* The present period, in which the caller is seen to be busy until it leaves it. One that has just been raised is looked at again,
 * as the daemon has already found nobody in the one before. */
static __always_inline __u32 enter_period(struct BpfEndedAdding* busy)
{
    const volatile __u32* now = bpf_map_lookup_elem(&period, &first);
    __u32 found = 0;
    for (int i = 0; now && i < 4; ++i) {
        found = *now;
        __sync_fetch_and_add(&busy->programs[found & 1], 1);
        if (*now == found) {
            break;
        }
        if (i < 3) {
            __sync_fetch_and_sub(&busy->programs[found & 1], 1);
        }
    }
    return found;
}

static __always_inline void add_to_entry(const struct BpfEndedKey* key, const struct task_struct* leader)
{
    struct BpfEndedSums* sums = bpf_map_lookup_elem(&ended, key);
    if (!sums) {
        const struct BpfEndedSums none = {};
        bpf_map_update_elem(&ended, key, &none, BPF_NOEXIST);
        sums = bpf_map_lookup_elem(&ended, key);
    }
    if (!sums && !(key->flags & BPF_ENDED_ITSELF) && !key->own) { /* of whom most may have been accounted already */
        sums = bpf_map_lookup_elem(&beyond, &first);
    }
    if (sums) {
        add_sums(sums, leader);
    }
}

/* By now the group has taken over the counters of all its threads, the main one included. */
SEC("tp_btf/sched_process_free") int add_ended(__u64* arguments)
{
    const struct task_struct* task = (const struct task_struct*)arguments[0];
    if (READ(task, pid) != READ(task, tgid)) {
        return 0;
    }
    const __u64 address = (__u64)task;
    struct BpfEndedKey* left = bpf_map_lookup_elem(&leaving, &address);
    struct BpfEndedAdding* busy = bpf_map_lookup_elem(&adding, &first);
    if (!left || !busy) {
        return 0; /* it had ended before anybody looked */
    }
    struct BpfEndedKey key = *left;
    bpf_map_delete_elem(&leaving, &address);
    const __u32 now = enter_period(busy);
    name_if_met(&key, task, now);
    add_to_entry(&key, task);
    __sync_fetch_and_sub(&busy->programs[now & 1], 1);
    return 0;
}

char endedLicense[] SEC("license") = "GPL";
