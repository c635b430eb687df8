// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <libproc.h>
#include <mach/task_info.h>
#include <sys/proc_info.h>
#include <sys/resource.h>
#include <sys/sysctl.h>

#include <cstddef>

namespace meridal {

// Where the kernel puts what we read: a header that lays a record out otherwise would give wrong figures in silence. Records
// grow at their ends with releases of the SDK, so only what is read is held, and the least that must be there.

static_assert(PROC_PIDTASKALLINFO == 2 && SZOMB == 5);
static_assert(offsetof(proc_taskallinfo, pbsd) == 0 && offsetof(proc_taskallinfo, ptinfo) == 136);
static_assert(offsetof(proc_bsdinfo, pbi_status) == 4 && offsetof(proc_bsdinfo, pbi_pid) == 12);
static_assert(offsetof(proc_bsdinfo, pbi_ppid) == 16 && offsetof(proc_bsdinfo, pbi_comm) == 48);
static_assert(offsetof(proc_bsdinfo, pbi_name) == 64 && sizeof(proc_bsdinfo::pbi_name) == 32);
static_assert(sizeof(proc_bsdinfo::pbi_comm) == 16 && SSTOP == 4);
static_assert(offsetof(proc_bsdinfo, pbi_uid) == 20 && offsetof(proc_bsdinfo, pbi_nice) == 116);
static_assert(offsetof(proc_taskinfo, pti_threadnum) == 84 && offsetof(proc_taskinfo, pti_numrunning) == 88);
static_assert(offsetof(proc_bsdinfo, pbi_start_tvsec) == 120 && offsetof(proc_bsdinfo, pbi_start_tvusec) == 128);
/// Bytes of a proc_taskallinfo that every kernel fills. One that is older than the SDK may fill less than sizeof.
constexpr int taskAllInfoBytes = 232;
constexpr int bsdInfoBytes = 136;
static_assert(sizeof(proc_taskallinfo) >= taskAllInfoBytes && sizeof(proc_bsdinfo) >= bsdInfoBytes);

// An entry of kern.proc.all: the kernel writes one behind the other, so here the size counts as well.
static_assert(sizeof(kinfo_proc) == 648 && offsetof(kinfo_proc, kp_eproc) == 296);
static_assert(offsetof(extern_proc, p_starttime) == 0 && offsetof(extern_proc, p_stat) == 36);
static_assert(offsetof(extern_proc, p_pid) == 40 && offsetof(extern_proc, p_nice) == 242);
static_assert(offsetof(extern_proc, p_comm) == 243 && sizeof(extern_proc::p_comm) == MAXCOMLEN + 1);
static_assert(offsetof(kinfo_proc, kp_eproc.e_ppid) == 560 && offsetof(kinfo_proc, kp_eproc.e_ucred.cr_uid) == 420);

static_assert(RUSAGE_INFO_V2 == 2 && RUSAGE_INFO_V3 == 3);
static_assert(sizeof(rusage_info_v2) == 160 && sizeof(rusage_info_v3) == 232); // more comes as another version
template <typename Usage>
constexpr bool isLaidOutAsTheKernelHasIt = offsetof(Usage, ri_user_time) == 16 && offsetof(Usage, ri_system_time) == 24
    && offsetof(Usage, ri_pkg_idle_wkups) == 32 && offsetof(Usage, ri_resident_size) == 64
    && offsetof(Usage, ri_diskio_bytesread) == 144 && offsetof(Usage, ri_diskio_byteswritten) == 152;
static_assert(isLaidOutAsTheKernelHasIt<rusage_info_v2> && isLaidOutAsTheKernelHasIt<rusage_info_v3>);

static_assert(TASK_VM_INFO_PURGEABLE == 23 && TASK_VM_INFO_COUNT >= TASK_VM_INFO_REV1_COUNT);
static_assert(TASK_VM_INFO_REV1_COUNT == 38); // with phys_footprint, in words of 32 bits
static_assert(offsetof(task_vm_info, resident_size) == 16 && offsetof(task_vm_info, internal) == 48);
static_assert(offsetof(task_vm_info, purgeable_volatile_pmap) == 96 && offsetof(task_vm_info, compressed) == 120);
static_assert(offsetof(task_vm_info, phys_footprint) == 144);

static_assert(KERN_PROCARGS2 == 49 && KERN_ARGMAX == 8);

} // namespace meridal
