/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
/* All processes through a file that the daemon reads. Linux 5.19 and later. */

#define TASK(address) ((const void*)(address))
#define MEMORY(address) ((const struct mm_struct*)(address))
#define READ(pointer, member) BPF_CORE_READ(pointer, member)
#include "platform/linux/bpf/process_fill.h"

/* What the passes ask for: a file has no room for parameters. */
struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(max_entries, 1);
    __type(key, __u32);
    __type(value, struct BpfPass);
} request SEC(".maps");

SEC("iter/task") int dump(struct bpf_iter__task* context)
{
    struct task_struct* task = context->task;
    const __u32 first = 0;
    const struct BpfPass* pass = bpf_map_lookup_elem(&request, &first);
    if (!task || !pass || task->pid != task->tgid) {
        return 0;
    }
    struct BpfProcess record = {};
    fill_record(&record, task, pass);
    bpf_seq_write(context->meta->seq, &record, sizeof record);
    return 0;
}
