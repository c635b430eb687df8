/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
/* The kernel's types of sockets, as kernel.h has those of processes. Included by *.bpf.c only. */
#pragma once

#include "platform/linux/bpf/kernel.h"

#pragma clang attribute push(__attribute__((preserve_access_index)), apply_to = record)

struct net {
    __u64 net_cookie;
};
typedef struct {
    struct net* net;
} possible_net_t;
struct sock_common {
    unsigned short skc_family;
    volatile unsigned char skc_state;
    possible_net_t skc_net;
};
struct socket;
struct sock {
    struct sock_common __sk_common;
    struct socket* sk_socket; /* null when no process has it: not accepted yet, or closed */
};
struct socket {
    struct sock* sk;
};

struct file;
struct bpf_iter__task_file {
    struct bpf_iter_meta* meta;
    struct task_struct* task;
    __u32 fd;
    struct file* file;
};

#pragma clang attribute pop

enum {
    FAMILY_IPV4 = 2,
    FAMILY_IPV6 = 10,
    PEEK = 2, /* MSG_PEEK */
};
