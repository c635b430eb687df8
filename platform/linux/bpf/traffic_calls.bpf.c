/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
/* Traffic by process where no program may be attached to the control groups: the payload of each call that sends or receives
 * (Linux 6.3 and later). Headers, retransmissions and acknowledgements are not seen, nor what splice() and zero-copy
 * receiving move. */
#include "platform/linux/bpf/casts.h"

#include "platform/linux/bpf/traffic_count.h"

static __always_inline void count_call(const struct sock* socket, int result, int direction)
{
    const struct task_struct* task = bpf_get_current_task_btf();
    if (result <= 0 || !is_internet(socket) || (task->flags & PF_KTHREAD)) {
        return;
    }
    const __u64 who = identity_of(task, place_of(socket->__sk_common.skc_net.net->net_cookie));
    struct BpfTrafficOwner owner = {};
    if (!bpf_map_lookup_elem(&traffic, &who)) {
        describe(&owner, task);
    }
    add_traffic(who, &owner, direction, (__u64)result, 1, 0);
}

SEC("tp_btf/sock_send_length") int note_sending(__u64* arguments)
{
    count_call((const struct sock*)arguments[0], (int)arguments[1], BPF_TRAFFIC_SENT);
    return 0;
}

SEC("tp_btf/sock_recv_length") int note_receiving(__u64* arguments)
{
    if (!(arguments[2] & PEEK)) {
        count_call((const struct sock*)arguments[0], (int)arguments[1], BPF_TRAFFIC_RECEIVED);
    }
    return 0;
}

char license_terms[] SEC("license") = "GPL";
