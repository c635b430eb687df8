// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulated/mac/Declare.h"

#include <mach/task_info.h>

#include <cstddef>
#include <cstdint>

#ifndef MERIDAL_BESIDE_REAL_HEADERS
using kern_return_t = int;
using integer_t = int;
using natural_t = unsigned;
using mach_port_t = unsigned;
using mach_port_name_t = natural_t;
using task_port_t = mach_port_t;
using ipc_space_t = mach_port_t;
using vm_map_t = mach_port_t;
using task_name_t = mach_port_t;
using host_t = mach_port_t;
using mach_msg_type_number_t = natural_t;
using vm_address_t = std::uintptr_t;
using vm_size_t = std::uintptr_t;
using processor_flavor_t = int;
using processor_info_array_t = integer_t*;
using host_flavor_t = integer_t;
using host_info64_t = integer_t*;

struct processor_cpu_load_info {
    unsigned cpu_ticks[4];
};
struct vm_statistics64 {
    natural_t free_count, active_count, inactive_count, wire_count;
    std::uint64_t zero_fill_count, reactivations, pageins, pageouts, faults, cow_faults, lookups, hits, purges;
    natural_t purgeable_count, speculative_count;
    std::uint64_t decompressions, compressions, swapins, swapouts;
    natural_t compressor_page_count, throttled_count, external_page_count, internal_page_count;
    std::uint64_t total_uncompressed_pages_in_compressor;
};
using vm_statistics64_data_t = vm_statistics64;

mach_port_t mach_task_self();
constexpr bool MACH_PORT_VALID(mach_port_name_t name) { return name != 0 && name != ~mach_port_name_t{0}; }
#endif

MAC_CONSTANT(kern_return_t, KERN_SUCCESS, 0);
MAC_CONSTANT(kern_return_t, KERN_INVALID_ARGUMENT, 4);
MAC_CONSTANT(kern_return_t, KERN_FAILURE, 5);
MAC_CONSTANT(kern_return_t, KERN_INVALID_NAME, 15);
MAC_CONSTANT(mach_port_t, MACH_PORT_NULL, 0);
MAC_CONSTANT(int, PROCESSOR_CPU_LOAD_INFO, 2);
MAC_CONSTANT(int, CPU_STATE_USER, 0);
MAC_CONSTANT(int, CPU_STATE_SYSTEM, 1);
MAC_CONSTANT(int, CPU_STATE_IDLE, 2);
MAC_CONSTANT(int, CPU_STATE_NICE, 3);
MAC_CONSTANT(int, CPU_STATE_MAX, 4);
MAC_CONSTANT(int, HOST_VM_INFO64, 4);
#ifndef MERIDAL_BESIDE_REAL_HEADERS
inline constexpr unsigned HOST_VM_INFO64_COUNT = 38; // and as many as a later kernel may add
#endif
static_assert(HOST_VM_INFO64_COUNT >= 38 && sizeof(vm_statistics64) >= 152);
static_assert(sizeof(processor_cpu_load_info) == 16);
static_assert(offsetof(vm_statistics64, wire_count) == 12 && offsetof(vm_statistics64, purgeable_count) == 88);
static_assert(offsetof(vm_statistics64, swapins) == 112 && offsetof(vm_statistics64, compressor_page_count) == 128);
static_assert(offsetof(vm_statistics64, external_page_count) == 136);

extern "C" {
extern vm_size_t vm_kernel_page_size;

mach_port_t mach_host_self();
kern_return_t mach_port_deallocate(ipc_space_t space, mach_port_name_t name);
kern_return_t task_name_for_pid(mach_port_name_t target, int pid, mach_port_name_t* name);
kern_return_t task_info(task_name_t task, task_flavor_t flavour, task_info_t info, mach_msg_type_number_t* count);
kern_return_t host_processor_info(host_t host, processor_flavor_t flavour, natural_t* processors,
    processor_info_array_t* info, mach_msg_type_number_t* count);
kern_return_t host_statistics64(host_t host, host_flavor_t flavour, host_info64_t info, mach_msg_type_number_t* count);
kern_return_t vm_deallocate(vm_map_t task, vm_address_t address, vm_size_t size);
}
