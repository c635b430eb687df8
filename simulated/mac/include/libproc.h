// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/proc_info.h>
#include <sys/resource.h>

extern "C" {
int proc_pidinfo(int pid, int flavour, std::uint64_t argument, void* buffer, int size);
int proc_pidfdinfo(int pid, int descriptor, int flavour, void* buffer, int size);
int proc_pidpath(int pid, void* buffer, std::uint32_t size);
int proc_pid_rusage(int pid, int flavour, rusage_info_t* buffer);
}
