/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
/* The few of the kernel's own types that our programs look into, with none but the members they use. Where a member lies is
 * found out when a program is loaded, in the type data of the kernel that runs (CO-RE): only names and kinds matter here, not
 * order or size. A name that ends in ___ and a word is another form of the same type, as older or newer kernels have it.
 * Included by *.bpf.c only. */
#pragma once

#include <linux/bpf.h>

#include <bpf/bpf_core_read.h>
#include <bpf/bpf_helpers.h>
#include <bpf/bpf_tracing.h>

#pragma clang attribute push(__attribute__((preserve_access_index)), apply_to = record)

struct list_head {
    struct list_head* next;
};

typedef struct {
    int counter;
} atomic_t;

typedef struct {
    long long counter;
} atomic64_t;

/* What guards the sums of a thread group: odd while they are written, another number afterwards. */
typedef struct seqcount {
    unsigned sequence;
} seqcount_t;
typedef struct seqcount_spinlock {
    seqcount_t seqcount;
} seqcount_spinlock_t;
typedef struct {
    seqcount_spinlock_t seqcount;
} seqlock_t;

struct task_io_accounting {
    __u64 read_bytes;
    __u64 write_bytes;
    __u64 cancelled_write_bytes;
};

struct kernfs_node {
    __u64 id;
    const char* name;
    struct kernfs_node* parent;
};
struct kernfs_node___since_6_15 {
    struct kernfs_node* __parent;
};
struct cgroup {
    struct kernfs_node* kn;
};
struct css_set {
    struct cgroup* dfl_cgrp;
};

struct percpu_counter {
    long long count;
    int* counters; /* per CPU */
};
struct mm_struct {
    struct percpu_counter rss_stat[4]; /* by MM_* below */
};
/* Linux 6.1 and before. */
struct mm_rss_stat {
    atomic64_t count[4];
};
struct mm_struct___before_6_2 {
    struct mm_rss_stat rss_stat;
};

typedef struct {
    unsigned val;
} kuid_t;
struct cred {
    kuid_t uid;
    kuid_t euid;
};

struct sched_entity {
    __u64 sum_exec_runtime;
};

struct signal_struct {
    int nr_threads;
    atomic_t live; /* threads that have not begun to end */
    struct list_head thread_head;
    seqlock_t stats_lock;
    unsigned long nvcsw;
    unsigned long cnvcsw, cmin_flt; /* of children that were waited for */
    __u64 utime, stime;
    struct task_io_accounting ioac; /* of ended threads, and of children that were waited for */
    unsigned long long sum_sched_runtime;
};

struct task_struct {
    unsigned flags;
    unsigned __state;
    int static_prio;
    int exit_state;
    int pid, tgid;
    struct sched_entity se;
    struct mm_struct* mm;
    struct task_struct* group_leader;
    struct task_struct* real_parent;
    struct list_head thread_node;
    unsigned long nvcsw;
    __u64 utime, stime;
    __u64 start_boottime;
    const struct cred* real_cred;
    char comm[16];
    struct signal_struct* signal;
    struct task_io_accounting ioac;
    struct css_set* cgroups;
};

struct bpf_map {
    int id;
};
struct bpf_array {
    void* pptrs[0]; /* of a per-CPU array: what each element's per-CPU address is */
};

struct seq_file;
struct bpf_iter_meta {
    struct seq_file* seq;
};
struct bpf_iter__task {
    struct bpf_iter_meta* meta;
    struct task_struct* task;
};

#pragma clang attribute pop

/* Opaque state of an iterator that lives on a program's stack. */
struct bpf_iter_task {
    __u64 opaque[3];
} __attribute__((aligned(8)));

enum {
    PF_KTHREAD = 0x00200000,
    EXIT_DEAD = 0x10,
    EXIT_ZOMBIE = 0x20,
    DEFAULT_PRIO = 120, /* that of nice 0 */
    MM_FILEPAGES = 0,
    MM_ANONPAGES = 1,
    MM_SWAPENTS = 2,
    MM_SHMEMPAGES = 3,
};

/* The kernel adds up what ended threads have read and written, and what children had when they were waited for, in one sum. Of
 * who has waited for any it is left out: a shell would have done what its commands did, and both would be counted. */
#define HAS_OWN_IO(group, READ)                                                                                        \
    (bpf_core_field_exists((group)->ioac.read_bytes) && READ(group, cmin_flt) == 0 && READ(group, cnvcsw) == 0)
