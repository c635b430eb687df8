/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
/* Makes a record out of a process. Included by the two programs that walk over all of them, once they have said how to look at
 * a task of which only the address is known: TASK(address) is a pointer, READ(pointer, member) a member behind it. */
#pragma once

#include "platform/linux/bpf/kernel.h"
#include "platform/linux/bpf/process_record.h"

enum {
    MAXIMUM_PROCESSORS = 8192, /* the most that a kernel can be built for */
    MAXIMUM_THREADS = 1 << 22, /* the most pids there are */
    ATTEMPTS = 4,
    MEMORY_TURNS = 16, /* passes in which the pages of each process are summed up at least once */
};

/* By processor: how far its own variables lie from where per-CPU pointers point. Filled by find_offsets. */
struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(max_entries, MAXIMUM_PROCESSORS);
    __type(key, __u32);
    __type(value, __u64);
} offsets SEC(".maps");

/* A per-CPU variable of our own, of which both addresses can be had. */
struct {
    __uint(type, BPF_MAP_TYPE_PERCPU_ARRAY);
    __uint(max_entries, 1);
    __type(key, __u32);
    __type(value, __u64);
} landmark SEC(".maps");

struct offset_search {
    __u64 base;
};

static long find_offset(__u32 processor, struct offset_search* search)
{
    __u32 first = 0;
    __u64* offset = bpf_map_lookup_elem(&offsets, &processor);
    void* there = bpf_map_lookup_percpu_elem(&landmark, &first, processor);
    if (!offset || !there) {
        return 1;
    }
    /* Through memory, which makes a number of the pointer: the verifier lets nobody count with pointers to maps. */
    *(volatile __u64*)offset = (__u64)there;
    *offset = *(volatile __u64*)offset - search->base;
    return 0;
}

/* Once, before the first pass. The kernel's own table of these offsets is a symbol that not every kernel shows. */
SEC("syscall") int find_offsets(struct BpfPass* pass)
{
    __u32 first = 0;
    __u64* note = bpf_map_lookup_elem(&offsets, &first);
    if (!note) {
        return 1;
    }
    *(volatile __u64*)note = (__u64)&landmark;
    const __u64 pointers = *(volatile __u64*)note + bpf_core_field_offset(struct bpf_array, pptrs);
    struct offset_search search = {};
    if (bpf_probe_read_kernel(&search.base, sizeof search.base, (const void*)pointers) != 0 || !search.base) {
        return 2;
    }
    bpf_loop(pass->processors, find_offset, &search, 0);
    return 0;
}

/* Resident pages by kind. A shared number and what each processor holds back from it, up to a batch each way. */
struct page_sum {
    __u64 counters[4]; /* per-CPU pointers */
    __s64 pages[4];
    int side_by_side;
};

static long add_processor(__u32 processor, struct page_sum* sum)
{
    const __u64* offset = bpf_map_lookup_elem(&offsets, &processor);
    if (!offset) {
        return 1;
    }
    int parts[4] = {};
    if (sum->side_by_side) {
        bpf_probe_read_kernel(parts, sizeof parts, (const void*)(sum->counters[0] + *offset));
    } else {
        for (int i = 0; i < 4; ++i) {
            bpf_probe_read_kernel(&parts[i], sizeof parts[i], (const void*)(sum->counters[i] + *offset));
        }
    }
    for (int i = 0; i < 4; ++i) {
        sum->pages[i] += parts[i];
    }
    return 0;
}

/* Each by its constant number: only so is the size of the kernel's elements put in, which are longer than ours. */
#define FOR_EACH_KIND(DO) DO(MM_FILEPAGES) DO(MM_ANONPAGES) DO(MM_SWAPENTS) DO(MM_SHMEMPAGES)

/* In kernels up to 6.1 threads hold back some dozens of pages each. The kernel's own files do not know better. */
#define TAKE_OLDER(kind) sum->pages[kind] = BPF_CORE_READ(older, rss_stat.count[kind].counter);
#define TAKE_PLAINLY(kind)                                                                                             \
    sum->pages[kind] = mm->rss_stat[kind].count;                                                                       \
    sum->counters[kind] = (__u64)mm->rss_stat[kind].counters;
#define TAKE_FROM_ADDRESS(kind)                                                                                        \
    sum->pages[kind] = READ(mm, rss_stat[kind].count);                                                                 \
    sum->counters[kind] = (__u64)READ(mm, rss_stat[kind].counters);

static __always_inline void take_pages(struct page_sum* sum, const struct mm_struct* mm)
{
    if (bpf_core_type_exists(struct mm_rss_stat)) {
        const struct mm_struct___before_6_2* older = (const void*)mm;
        FOR_EACH_KIND(TAKE_OLDER)
    } else {
        FOR_EACH_KIND(TAKE_PLAINLY)
    }
}

static __always_inline void take_pages_at(struct page_sum* sum, const struct mm_struct* mm)
{
    if (bpf_core_type_exists(struct mm_rss_stat)) {
        const struct mm_struct___before_6_2* older = (const void*)mm;
        FOR_EACH_KIND(TAKE_OLDER)
    } else {
        FOR_EACH_KIND(TAKE_FROM_ADDRESS)
    }
}

static __always_inline void fill_memory(struct BpfProcess* record, struct page_sum* sum, __u32 processors)
{
    if (!bpf_core_type_exists(struct mm_rss_stat)) {
        sum->side_by_side = sum->counters[3] == sum->counters[0] + 3 * sizeof(int); /* since 6.6 */
        bpf_loop(processors, add_processor, sum, 0);
    }
    record->filePages = sum->pages[MM_FILEPAGES];
    record->anonymousPages = sum->pages[MM_ANONPAGES];
    record->swappedPages = sum->pages[MM_SWAPENTS];
    record->sharedPages = sum->pages[MM_SHMEMPAGES];
}

struct thread_walk {
    struct BpfProcess* record;
    const struct list_head* next;
    const struct list_head* head;
};

static long add_thread(__u32 index __attribute__((unused)), struct thread_walk* walk)
{
    if (!walk->next || walk->next == walk->head) {
        return 1;
    }
    const struct task_struct* thread =
        TASK((const char*)walk->next - bpf_core_field_offset(struct task_struct, thread_node));
    struct BpfProcess* record = walk->record;
    record->runTime += READ(thread, se.sum_exec_runtime);
    record->userTime += READ(thread, utime);
    record->systemTime += READ(thread, stime);
    record->voluntarySwitches += READ(thread, nvcsw);
    if (bpf_core_field_exists(thread->ioac.read_bytes)) {
        record->readBytes += READ(thread, ioac.read_bytes);
        record->writtenBytes += READ(thread, ioac.write_bytes);
        record->cancelledBytes += READ(thread, ioac.cancelled_write_bytes);
    }
    walk->next = READ(thread, thread_node.next);
    return 0;
}

struct memory_search {
    const struct list_head* next;
    const struct list_head* head;
    __u64 memory; /* address */
};

static long look_for_memory(__u32 index __attribute__((unused)), struct memory_search* search)
{
    if (!search->next || search->next == search->head) {
        return 1;
    }
    const struct task_struct* thread =
        TASK((const char*)search->next - bpf_core_field_offset(struct task_struct, thread_node));
    search->memory = (__u64)READ(thread, mm);
    search->next = READ(thread, thread_node.next);
    return search->memory != 0;
}

/* Of a process whose main thread has ended: its other threads have it still. 0 when none does. */
static __always_inline __u64 memory_of_threads(struct signal_struct* group)
{
    struct memory_search search = {.next = READ(group, thread_head.next)};
    search.head = (const void*)((const char*)group + bpf_core_field_offset(struct signal_struct, thread_head));
    bpf_loop(MAXIMUM_THREADS, look_for_memory, &search, 0);
    return search.memory;
}

/* What the group keeps of its ended threads. */
static __always_inline void take_ended_threads(struct BpfProcess* record, struct signal_struct* group)
{
    record->runTime = group->sum_sched_runtime;
    record->userTime = group->utime;
    record->systemTime = group->stime;
    record->voluntarySwitches = group->nvcsw;
    record->readBytes = record->writtenBytes = record->cancelledBytes = 0;
    if (HAS_OWN_IO(group, READ)) {
        record->readBytes = group->ioac.read_bytes;
        record->writtenBytes = group->ioac.write_bytes;
        record->cancelledBytes = group->ioac.cancelled_write_bytes;
    }
}

static __always_inline void fill_counters(
    struct BpfProcess* record, struct task_struct* task, struct signal_struct* group)
{
    if (group->nr_threads == 1) {
        take_ended_threads(record, group);
        record->runTime += task->se.sum_exec_runtime;
        record->userTime += task->utime;
        record->systemTime += task->stime;
        record->voluntarySwitches += task->nvcsw;
        if (bpf_core_field_exists(task->ioac.read_bytes)) {
            record->readBytes += task->ioac.read_bytes;
            record->writtenBytes += task->ioac.write_bytes;
            record->cancelledBytes += task->ioac.cancelled_write_bytes;
        }
        return;
    }
    /* A thread that ends meanwhile hands its counters over to the group: it would be counted twice, or not at all. */
    for (int i = 0; i < ATTEMPTS; ++i) {
        const unsigned sequence = READ(group, stats_lock.seqcount.seqcount.sequence);
        take_ended_threads(record, group);
        struct thread_walk walk = {.record = record, .next = READ(group, thread_head.next)};
        walk.head = (const void*)((const char*)group + bpf_core_field_offset(struct signal_struct, thread_head));
        bpf_loop(MAXIMUM_THREADS, add_thread, &walk, 0);
        if (!(sequence & 1) && sequence == READ(group, stats_lock.seqcount.seqcount.sequence)) {
            return;
        }
    }
    record->flags |= BPF_PROCESS_TORN;
}

/* A look at the variables of each processor, for each process, is the dearest part of a record. Who did not run since the record
 * was filled holds what it held, but for pages that were taken from it, which may be told some passes later. */
static __always_inline int holds_what_it_held(
    const struct BpfProcess* record, const struct BpfProcess* before, const struct BpfPass* pass)
{
    return before->flags & BPF_PROCESS_HAS_MEMORY && before->pid == record->pid && before->start == record->start
        && before->runTime == record->runTime && ((__u32)record->pid + pass->number) % MEMORY_TURNS != 0;
}

/* The record may hold what an earlier pass has filled in. */
static __always_inline void fill_record(struct BpfProcess* record, struct task_struct* task, const struct BpfPass* pass)
{
    const struct BpfProcess before = {
        .pid = record->pid, .flags = record->flags, .start = record->start, .runTime = record->runTime};
    struct signal_struct* group = task->signal;
    struct mm_struct* mm = task->mm;
    record->pid = task->tgid;
    record->parent = task->real_parent->tgid;
    const int lost_main_thread = (task->exit_state & EXIT_ZOMBIE) && group->nr_threads > 1;
    record->flags = (task->exit_state & (EXIT_DEAD | EXIT_ZOMBIE) && !lost_main_thread ? BPF_PROCESS_ENDED : 0)
        | (task->flags & PF_KTHREAD ? BPF_PROCESS_KERNEL_THREAD : 0)
        | (group->live.counter == 0 ? BPF_PROCESS_LEAVING : 0)
        | (bpf_core_field_exists(task->ioac.read_bytes) ? BPF_PROCESS_HAS_IO : 0);
    record->user = task->real_cred->euid.val;
    record->threads = (__u32)group->nr_threads;
    record->state = (__u16)(task->__state | (__u32)task->exit_state);
    record->nice = (__s16)(task->static_prio - DEFAULT_PRIO);
    record->start = task->start_boottime;
    bpf_core_read(record->name, sizeof record->name, &task->comm);
    record->cgroup = record->cgroups = 0;
    if (bpf_core_field_exists(task->cgroups)) {
        const struct css_set* cgroups = task->cgroups;
        record->cgroup = cgroups->dfl_cgrp->kn->id;
        record->cgroups = (__u64)cgroups;
    }
    fill_counters(record, task, group);
    const int wantsMemory =
        pass->wantsMemory && !(task->flags & PF_KTHREAD); /* which may borrow a process's for a while */
    if (wantsMemory) {
        record->flags |= BPF_PROCESS_HAS_MEMORY;
        if (holds_what_it_held(record, &before, pass)) {
            return;
        }
    }
    record->filePages = record->anonymousPages = record->swappedPages = record->sharedPages = 0;
    if (!wantsMemory) {
        return;
    }
    struct page_sum sum = {};
    if (mm) {
        take_pages(&sum, mm);
        fill_memory(record, &sum, pass->processors);
    } else if (lost_main_thread) {
        const __u64 memory = memory_of_threads(group);
        if (memory) {
            take_pages_at(&sum, MEMORY(memory));
            fill_memory(record, &sum, pass->processors);
        }
    }
}

char programLicense[] SEC("license") = "GPL"; /* the kernel offers half of the helpers used here to nothing else */
