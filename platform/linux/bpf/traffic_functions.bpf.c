/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
/* For Linux before 6.3, which has no tracepoints where a process sends and receives, on processors for which it lets programs
 * follow its functions: x86. */
#define CLAIMED_BY_CALLS

#include "platform/linux/bpf/traffic_sockets.h"

static __always_inline int claim_socket(const struct socket* socket, int result)
{
    struct sock* inner = socket->sk;
    if (inner) {
        claim(inner, result);
    }
    return 0;
}

SEC("fexit/inet_sendmsg") int note_sending(__u64* arguments)
{
    return claim_socket((const struct socket*)arguments[0], (int)arguments[3]);
}

SEC("fexit/inet6_sendmsg") int note_sending6(__u64* arguments)
{
    return claim_socket((const struct socket*)arguments[0], (int)arguments[3]);
}

SEC("fexit/inet_recvmsg") int note_receiving(__u64* arguments)
{
    return claim_socket((const struct socket*)arguments[0], (int)arguments[4]);
}

SEC("fexit/inet6_recvmsg") int note_receiving6(__u64* arguments)
{
    return claim_socket((const struct socket*)arguments[0], (int)arguments[4]);
}
