// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/MachineCounters.h"
#include "platform/linux/kernel/Descriptor.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// Finds those whom the kernel killed for want of memory in its log's records. It writes two of each: one that names the
/// control group, and one of the kill itself.
class MemoryKillRecords {
public:
    /// Takes a record as /dev/kmsg gives it: "priority,number,microseconds,flags;text", and keys on lines of their own.
    /// Records that a program wrote are passed over, whatever they say.
    std::optional<MemoryKill> take(std::string_view record);

private:
    std::int32_t pid_ = 0; ///< whose control group this is
    std::string cgroup_;
};

/// The kernel's log, from its oldest record on. Opened at the first question, and kept open then. Where it may not be read
/// nobody is found.
class MemoryKillLog {
public:
    explicit MemoryKillLog(std::filesystem::path path) : path_(std::move(path)) { }
    /// Those since the last question.
    std::vector<MemoryKill> read();

private:
    std::filesystem::path path_;
    Descriptor log_;
    MemoryKillRecords records_;
};

} // namespace meridal
