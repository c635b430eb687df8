// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/processes/TaskMemory.h"

#include "platform/macos/kernel/KernelLayouts.h"
#include "platform/macos/kernel/MachPort.h"

#include <mach/mach.h>

#include <algorithm>
#include <array>

namespace meridal {

namespace {

/// Whether the task still answers. Flavour 5 names the 64-bit basic record on Intel and the 32-bit one on arm64; both
/// fit into 10 words, and neither is read: its sizes are not to be trusted on arm64.
bool isAlive(const MachPort& task)
{
    constexpr task_flavor_t basicInfo = 5;
    std::array<integer_t, 10> unread{};
    mach_msg_type_number_t count = unread.size();
    return task_info(task.name(), basicInfo, unread.data(), &count) == KERN_SUCCESS;
}

/// Kernels that do not fill phys_footprint yet count the same pages this way.
std::uint64_t footprintFromParts(const task_vm_info_data_t& info)
{
    const std::uint64_t resident = info.internal - std::min(info.internal, info.purgeable_volatile_pmap);
    return resident + info.compressed;
}

} // namespace

std::optional<TaskMemory> readTaskMemory(std::int32_t pid)
{
    MachPort task;
    if (task_name_for_pid(mach_task_self(), pid, task.receive()) != KERN_SUCCESS || !isAlive(task)) {
        return std::nullopt;
    }
    task_vm_info_data_t info{};
    mach_msg_type_number_t count = TASK_VM_INFO_COUNT;
    // The plain flavour leaves purgeable_volatile_pmap at 0.
    if (task_info(task.name(), TASK_VM_INFO_PURGEABLE, reinterpret_cast<task_info_t>(&info), &count) != KERN_SUCCESS) {
        return std::nullopt;
    }
    // An older kernel fills less and lowers the count, which is in 32-bit words.
    return TaskMemory{
        .physFootprint = count >= TASK_VM_INFO_REV1_COUNT ? info.phys_footprint : footprintFromParts(info),
        .anonymous = info.internal,
        .purgeableVolatile = info.purgeable_volatile_pmap,
        .compressed = info.compressed,
        .residentSize = info.resident_size,
    };
}

} // namespace meridal
