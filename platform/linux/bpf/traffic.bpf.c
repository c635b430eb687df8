/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
/* For Linux 6.3 and later, which tells of every call that sends or receives. */
#define CLAIMED_BY_CALLS

#include "platform/linux/bpf/casts.h"

#include "platform/linux/bpf/traffic_sockets.h"

SEC("tp_btf/sock_send_length") int note_sending(__u64* arguments)
{
    claim((struct sock*)arguments[0], (int)arguments[1]);
    return 0;
}

SEC("tp_btf/sock_recv_length") int note_receiving(__u64* arguments)
{
    claim((struct sock*)arguments[0], (int)arguments[1]);
    return 0;
}
