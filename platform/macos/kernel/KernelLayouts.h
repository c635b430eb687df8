// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <libproc.h>
#include <mach/task_info.h>
#include <sys/proc_info.h>
#include <sys/resource.h>
#include <sys/sysctl.h>

#include <cstddef>

namespace meridal {

// The kernel copies these records by size: a header that lays one out otherwise would give wrong figures in silence.

static_assert(PROC_PIDTASKALLINFO == 2 && SZOMB == 5);
static_assert(sizeof(proc_taskallinfo) == 232 && sizeof(proc_bsdinfo) == 136);
static_assert(offsetof(proc_taskallinfo, ptinfo) == 136);
static_assert(offsetof(proc_bsdinfo, pbi_status) == 4 && offsetof(proc_bsdinfo, pbi_pid) == 12);
static_assert(offsetof(proc_bsdinfo, pbi_ppid) == 16 && offsetof(proc_bsdinfo, pbi_comm) == 48);
static_assert(offsetof(proc_bsdinfo, pbi_name) == 64 && sizeof(proc_bsdinfo::pbi_name) == 32);
static_assert(sizeof(proc_bsdinfo::pbi_comm) == 16 && SSTOP == 4);
static_assert(offsetof(proc_bsdinfo, pbi_uid) == 20 && offsetof(proc_bsdinfo, pbi_nice) == 116);
static_assert(offsetof(proc_taskinfo, pti_threadnum) == 84 && offsetof(proc_taskinfo, pti_numrunning) == 88);
static_assert(offsetof(proc_bsdinfo, pbi_start_tvsec) == 120 && offsetof(proc_bsdinfo, pbi_start_tvusec) == 128);

static_assert(RUSAGE_INFO_V2 == 2 && RUSAGE_INFO_V3 == 3);
static_assert(sizeof(rusage_info_v2) == 160 && sizeof(rusage_info_v3) == 232);
template <typename Usage>
constexpr bool isLaidOutAsTheKernelHasIt = offsetof(Usage, ri_user_time) == 16 && offsetof(Usage, ri_system_time) == 24
    && offsetof(Usage, ri_pkg_idle_wkups) == 32 && offsetof(Usage, ri_resident_size) == 64
    && offsetof(Usage, ri_diskio_bytesread) == 144 && offsetof(Usage, ri_diskio_byteswritten) == 152;
static_assert(isLaidOutAsTheKernelHasIt<rusage_info_v2> && isLaidOutAsTheKernelHasIt<rusage_info_v3>);

static_assert(TASK_VM_INFO_PURGEABLE == 23 && TASK_VM_INFO_COUNT == 87 && sizeof(task_vm_info_data_t) == 348);
static_assert(offsetof(task_vm_info, resident_size) == 16 && offsetof(task_vm_info, internal) == 48);
static_assert(offsetof(task_vm_info, purgeable_volatile_pmap) == 96 && offsetof(task_vm_info, compressed) == 120);
static_assert(offsetof(task_vm_info, phys_footprint) == 144);

static_assert(KERN_PROCARGS2 == 49 && KERN_ARGMAX == 8);

} // namespace meridal
