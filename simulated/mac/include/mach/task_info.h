// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulated/mac/Declare.h"

#include <cstdint>

#ifndef MERIDAL_BESIDE_REAL_HEADERS
#pragma pack(push, 4)
struct task_vm_info {
    std::uint64_t virtual_size;
    std::int32_t region_count, page_size;
    std::uint64_t resident_size, resident_size_peak, device, device_peak, internal, internal_peak, external,
        external_peak, reusable, reusable_peak, purgeable_volatile_pmap, purgeable_volatile_resident,
        purgeable_volatile_virtual, compressed, compressed_peak, compressed_lifetime;
    std::uint64_t phys_footprint;
    std::uint64_t ofLater[24];
    std::int32_t decompressions;
};
#pragma pack(pop)
using task_vm_info_data_t = task_vm_info;
using task_info_t = int*;
using task_flavor_t = unsigned;
#endif

MAC_CONSTANT(unsigned, TASK_VM_INFO, 22);
MAC_CONSTANT(unsigned, TASK_VM_INFO_PURGEABLE, 23);
MAC_CONSTANT(unsigned, TASK_VM_INFO_REV1_COUNT, 38);
MAC_CONSTANT(unsigned, TASK_VM_INFO_REV0_COUNT, 36);
// It grows with the releases: 87 words up to macOS 12.2, 89 then, 93 in 15.
#ifndef MERIDAL_BESIDE_REAL_HEADERS
inline constexpr unsigned TASK_VM_INFO_COUNT = 87;
#endif
static_assert(TASK_VM_INFO_COUNT >= 87 && sizeof(task_vm_info) >= 348);
