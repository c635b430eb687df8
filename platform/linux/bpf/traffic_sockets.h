/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
/* Traffic by process, counted where packets leave and enter sockets: programs on the root of the control groups see every
 * socket of the machine, in whatever network namespace, and packets as IP has them. Whose a socket is stands in the socket's own
 * storage, which the kernel frees with the socket and copies from a listening one to the connections that come in by it.
 *
 * With CLAIMED_BY_CALLS a socket is his who sends and receives by it; until somebody does, its bytes wait. The source that
 * includes this calls claim() then. Otherwise it is his who made it; a connection that came in waits for who is found to have it,
 * or closes it. */
#pragma once

#include "platform/linux/bpf/traffic_count.h"

struct socket_owner {
    __u64 who; /* identity, see traffic_record.h */
    struct BpfTrafficOwner owner;
    __u64 waiting_bytes[BPF_TRAFFIC_DIRECTIONS];
    __u64 waiting_packets[BPF_TRAFFIC_DIRECTIONS];
    __u64 waiting_bare;
    __u64 waiting_since; /* ns; 0 = nothing waited yet */
    __u32 is_settled;    /* bytes need not wait */
    __u32 has_listened;  /* it, or, until it has begun for itself, the one by which it came in */
};

struct {
    __uint(type, BPF_MAP_TYPE_SK_STORAGE);
    __uint(map_flags, BPF_F_NO_PREALLOC | BPF_F_CLONE);
    __type(key, int);
    __type(value, struct socket_owner);
} owners SEC(".maps");

/* Bits by index of interface, see traffic_record.h. */
struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(max_entries, BPF_TRAFFIC_INTERFACE_WORDS);
    __type(key, __u32);
    __type(value, __u64);
} bare_links SEC(".maps");

/* ns for which bytes wait at least: a packet that comes later gives them to whoever made the socket. */
#ifdef CLAIMED_BY_CALLS
#define PATIENCE 1000000000ull /* as long as the capture waits for a connection to be accepted */
#else
#define PATIENCE 10000000000ull /* the daemon looks for the owner at its next readings */
#endif

static __always_inline __u64 is_bare(__u32 interface)
{
    const __u32 word = interface / 64;
    const __u64* bits = bpf_map_lookup_elem(&bare_links, &word);
    return bits ? *bits >> (interface % 64) & 1 : 0;
}

/* So that the daemon does not take for the kernel's what is to be somebody's. Less than 0 when it ends. */
static __always_inline void add_waiting(
    const struct socket_owner* owner, int direction, __u64 bytes, __u64 packets, __u64 bare)
{
    const __u64 waiting = BPF_TRAFFIC_WAITING | (owner->who & BPF_TRAFFIC_ELSEWHERE);
    struct BpfTraffic* sums = bpf_map_lookup_elem(&traffic, &waiting);
    if (sums) {
        add_sums(sums, direction, bytes, packets, bare);
    }
}

static __always_inline void release_waiting(struct socket_owner* owner)
{
    for (int direction = 0; direction < BPF_TRAFFIC_DIRECTIONS; ++direction) {
        const __u64 packets = __sync_lock_test_and_set(&owner->waiting_packets[direction], 0);
        const __u64 bytes = __sync_lock_test_and_set(&owner->waiting_bytes[direction], 0);
        if (packets || bytes) {
            add_traffic(owner->who, &owner->owner, direction, bytes, packets, 0);
            add_waiting(owner, direction, -bytes, -packets, 0);
        }
    }
    /* Last: nobody may see more bare packets than packets. */
    const __u64 bare = __sync_lock_test_and_set(&owner->waiting_bare, 0);
    if (bare) {
        add_traffic(owner->who, &owner->owner, 0, 0, 0, bare);
        add_waiting(owner, 0, 0, 0, -bare);
    }
}

static __always_inline void settle(struct socket_owner* owner)
{
    owner->is_settled = 1;
    release_waiting(owner);
}

static __always_inline void give(struct socket_owner* owner, const struct task_struct* task, __u64 place)
{
    describe(&owner->owner, task);
    owner->who = identity_of(task, place);
}

/* A connection that came in starts with a copy of all that is known of the listening socket. */
static __always_inline void begin_connection(struct socket_owner* owner)
{
    if (__sync_val_compare_and_swap(&owner->has_listened, 1, 0) != 1) {
        return;
    }
    for (int direction = 0; direction < BPF_TRAFFIC_DIRECTIONS; ++direction) {
        owner->waiting_bytes[direction] = 0;
        owner->waiting_packets[direction] = 0;
    }
    owner->waiting_bare = 0;
    owner->waiting_since = 0;
    owner->is_settled = 0;
}

static __always_inline void wait_for_owner(struct socket_owner* owner, int direction, __u64 bytes, __u64 bare)
{
    const __u64 now = bpf_ktime_get_ns();
    if (!owner->waiting_since) {
        owner->waiting_since = now;
    }
    __sync_fetch_and_add(&owner->waiting_bytes[direction], bytes);
    __sync_fetch_and_add(&owner->waiting_packets[direction], 1);
    __sync_fetch_and_add(&owner->waiting_bare, bare);
    add_waiting(owner, direction, bytes, 1, bare);
    if (owner->is_settled) { /* meanwhile, on another processor */
        release_waiting(owner);
    } else if (now - owner->waiting_since > PATIENCE) {
        settle(owner);
    }
}

static __always_inline void count_packet(struct __sk_buff* packet, int direction)
{
    struct bpf_sock* socket = packet->sk;
    if (!socket) {
        return;
    }
    socket = bpf_sk_fullsock(socket);
    if (!socket) {
        return;
    }
    struct socket_owner* owner = bpf_sk_storage_get(&owners, socket, NULL, 0);
    if (!owner) {
        return; /* the kernel's own */
    }
    if (socket->state == BPF_TCP_LISTEN) {
        owner->has_listened = 1;
        owner->is_settled = 1; /* nobody sends or receives by it: it stays his who made it */
    } else if (owner->has_listened) {
        begin_connection(owner);
    }
    const __u64 bare = is_bare(packet->ifindex);
    if (owner->is_settled) {
        add_traffic(owner->who, &owner->owner, direction, packet->len, 1, bare);
    } else {
        wait_for_owner(owner, direction, packet->len, bare);
    }
}

SEC("cgroup_skb/egress") int count_sent(struct __sk_buff* packet)
{
    count_packet(packet, BPF_TRAFFIC_SENT);
    return 1; /* lets it pass */
}

SEC("cgroup_skb/ingress") int count_received(struct __sk_buff* packet)
{
    count_packet(packet, BPF_TRAFFIC_RECEIVED);
    return 1;
}

SEC("cgroup/sock_create") int note_created(struct bpf_sock* socket)
{
    struct socket_owner* owner = bpf_sk_storage_get(&owners, socket, NULL, BPF_SK_STORAGE_GET_F_CREATE);
    if (owner) {
        give(owner, bpf_get_current_task_btf(), place_of(bpf_get_netns_cookie(socket)));
#ifndef CLAIMED_BY_CALLS
        owner->is_settled = 1;
#endif
    }
    return 1;
}

/* The last descriptor is closed: by the process that used it, be it in its end. */
SEC("cgroup/sock_release") int note_released(struct bpf_sock* socket)
{
    struct socket_owner* owner = bpf_sk_storage_get(&owners, socket, NULL, 0);
    if (!owner) {
        return 1;
    }
    if (owner->has_listened && socket->state != BPF_TCP_LISTEN) {
        begin_connection(owner);
    }
    const struct task_struct* task = bpf_get_current_task_btf();
    if (!owner->is_settled && !(task->flags & PF_KTHREAD)) {
        give(owner, task, owner->who & BPF_TRAFFIC_ELSEWHERE);
    }
    settle(owner);
    return 1;
}

/* A connection that nobody ever accepted is not closed by a process. What it carried is his who listened. */
SEC("tp_btf/inet_sock_set_state") int note_state(__u64* arguments)
{
    struct sock* socket = (struct sock*)arguments[0];
    if ((int)arguments[2] != BPF_TCP_CLOSE || socket->sk_socket || !is_internet(socket)) {
        return 0;
    }
    struct socket_owner* owner = bpf_sk_storage_get(&owners, socket, NULL, 0);
    if (owner && !owner->has_listened && !owner->is_settled) {
        settle(owner);
    }
    return 0;
}

/* For sockets that are older than the programs. Of those that share one the youngest has it, as it comes last: a child is
 * likelier to use a socket than the parent that it was inherited from. */
SEC("iter/task_file") int note_held(struct bpf_iter__task_file* context)
{
    const struct task_struct* task = context->task;
    struct file* file = context->file;
    struct socket* socket = task && file ? bpf_sock_from_file(file) : NULL;
    struct sock* inner = socket ? socket->sk : NULL;
    if (!inner || !is_internet(inner)) {
        return 0;
    }
    struct socket_owner* owner = bpf_sk_storage_get(&owners, inner, NULL, BPF_SK_STORAGE_GET_F_CREATE);
    if (owner) {
        if (owner->has_listened && inner->__sk_common.skc_state != BPF_TCP_LISTEN) {
            begin_connection(owner);
        }
        give(owner, task, place_of(inner->__sk_common.skc_net.net->net_cookie));
        settle(owner);
    }
    return 0;
}

#ifdef CLAIMED_BY_CALLS
static __always_inline void claim(struct sock* socket, int result)
{
    const struct task_struct* task = bpf_get_current_task_btf();
    /* What file systems and block devices send is the kernel's, whichever thread of it happens to do that. */
    if (result <= 0 || !is_internet(socket) || (task->flags & PF_KTHREAD)) {
        return;
    }
    struct socket_owner* owner = bpf_sk_storage_get(&owners, socket, NULL, BPF_SK_STORAGE_GET_F_CREATE);
    if (!owner) {
        return;
    }
    if (owner->has_listened) {
        begin_connection(owner);
    }
    if (!owner->is_settled || (owner->who & BPF_TRAFFIC_PID_MASK) != (__u64)task->tgid) {
        give(owner, task, place_of(socket->__sk_common.skc_net.net->net_cookie));
        settle(owner);
    }
}
#endif

char license_terms[] SEC("license") = "GPL";
