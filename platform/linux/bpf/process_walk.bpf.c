/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
/* All processes in one call, into an array that the daemon has mapped. Linux 6.7 and later: the iterator over tasks that a
 * program can use by itself. */

#include "platform/linux/bpf/casts.h"

#define READ(pointer, member) ((pointer)->member)
#include "platform/linux/bpf/process_fill.h"

extern void bpf_rcu_read_lock(void) __ksym;
extern void bpf_rcu_read_unlock(void) __ksym;
extern int bpf_iter_task_new(struct bpf_iter_task* iterator, struct task_struct* task, unsigned flags) __ksym;
extern struct task_struct* bpf_iter_task_next(struct bpf_iter_task* iterator) __ksym;
extern void bpf_iter_task_destroy(struct bpf_iter_task* iterator) __ksym;

/* The daemon makes it as large as it needs to be. */
struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(max_entries, 1);
    __uint(map_flags, BPF_F_MMAPABLE);
    __type(key, __u32);
    __type(value, struct BpfProcess);
} records SEC(".maps");

/* Checked by the kernel for itself, once, as it is not static: within the loop each way through it would be gone anew for each
 * of the ways that lead there, half a second of them. Only numbers and memory may be handed over, so the address of the task lies
 * in the record. */
__attribute__((noinline)) int fill(struct BpfProcess* record, const struct BpfPass* pass)
{
    if (record && pass) {
        fill_record(record, TASK(record->cgroups), pass);
    }
    return 0;
}

SEC("syscall") int walk(struct BpfPass* pass)
{
    struct BpfPass wanted = *pass;
    __u32 count = 0;
    struct bpf_iter_task iterator;
    struct task_struct* task;
    bpf_rcu_read_lock();
    bpf_iter_task_new(&iterator, NULL, 0 /* all processes */);
    while ((task = bpf_iter_task_next(&iterator))) {
        if (task->pid == 0) { /* the idle task */
            continue;
        }
        const __u32 index = count++;
        struct BpfProcess* record = bpf_map_lookup_elem(&records, &index);
        if (record) {
            record->cgroups = (__u64)task;
            fill(record, &wanted);
        }
    }
    bpf_iter_task_destroy(&iterator);
    bpf_rcu_read_unlock();
    pass->processes = count;
    return 0;
}
