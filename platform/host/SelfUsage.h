// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

namespace meridal {

/// What the daemon has cost since it started; a figure that the host does not tell is absent.
struct SelfCost {
    std::optional<double> cpuSeconds;
    std::optional<std::uint64_t> wakeups; ///< voluntary context switches (Linux), idle wake-ups (macOS)
};

/// The same and what it holds.
struct SelfUsageReading : SelfCost {
    std::optional<std::uint64_t> residentBytes;
    std::optional<std::uint64_t> proportionalBytes; ///< shared pages divided among their users (PSS); Linux only
    std::optional<std::uint64_t> bytesWritten;      ///< to storage
    std::optional<std::uint64_t> openDescriptors;
};

/// macOS: proc_pid_rusage on itself. Linux: getrusage and /proc/self.
class SelfUsage {
public:
    virtual ~SelfUsage() = default;
    virtual SelfUsageReading read() = 0;
    /// Only what costs next to nothing to read.
    virtual SelfCost readCost() = 0;
};

} // namespace meridal
