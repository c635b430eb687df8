// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulated/mac/Declare.h"

#include <sys/time.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#ifndef MERIDAL_BESIDE_REAL_HEADERS
struct extern_proc {
    timeval p_starttime;
    char beforeStatus[20];
    char p_stat;
    pid_t p_pid;
    char beforeNice[198];
    char p_nice;
    char p_comm[17];
    char rest[36];
};
struct _ucred {
    std::int32_t cr_ref;
    uid_t cr_uid;
    char rest[68];
};
struct kinfo_proc {
    extern_proc kp_proc;
    struct eproc {
        char beforeCredentials[120];
        _ucred e_ucred;
        char beforeParent[68];
        pid_t e_ppid;
        char rest[84];
    } kp_eproc;
};
struct xsw_usage {
    std::uint64_t xsu_total;
    std::uint64_t xsu_avail;
    std::uint64_t xsu_used;
    std::uint32_t xsu_pagesize;
    int xsu_encrypted;
};
#endif

MAC_CONSTANT(int, MAXCOMLEN, 16);
MAC_CONSTANT(char, SRUN, 2);
MAC_CONSTANT(char, SSTOP, 4);
MAC_CONSTANT(char, SZOMB, 5);
MAC_CONSTANT(int, CTL_KERN, 1);
MAC_CONSTANT(int, KERN_ARGMAX, 8);
MAC_CONSTANT(int, KERN_PROC, 14);
MAC_CONSTANT(int, KERN_PROC_ALL, 0);
MAC_CONSTANT(int, KERN_PROC_PID, 1);
MAC_CONSTANT(int, KERN_PROCARGS2, 49);
static_assert(sizeof(xsw_usage) == 32 && offsetof(xsw_usage, xsu_used) == 16);

extern "C" {
int sysctl(int* name, unsigned length, void* old, std::size_t* oldSize, void* fresh, std::size_t freshSize);
int sysctlbyname(const char* name, void* old, std::size_t* oldSize, void* fresh, std::size_t freshSize);
}
