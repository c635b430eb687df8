// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

namespace meridal {

/// Memory figures of a task, in bytes, from the kernel's virtual-memory record.
struct TaskMemory {
    std::uint64_t physFootprint = 0;
    std::uint64_t anonymous = 0; ///< "internal"
    std::uint64_t purgeableVolatile = 0;
    std::uint64_t compressed = 0;
    std::uint64_t residentSize = 0;
};

/// Reads them through the task's name port. Absent when the process is gone, a zombie, or may not be asked.
std::optional<TaskMemory> readTaskMemory(std::int32_t pid);

} // namespace meridal
