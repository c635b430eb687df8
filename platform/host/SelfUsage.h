#pragma once

#include <cstdint>
#include <optional>

namespace meridal {

/// What the daemon itself costs. Cumulative since its start; a figure that the host does not tell is absent.
struct SelfUsageReading {
    std::optional<double> cpuSeconds;
    std::optional<std::uint64_t> residentBytes;
    std::optional<std::uint64_t> proportionalBytes; ///< shared pages divided among their users (PSS); Linux only
    std::optional<std::uint64_t> wakeups;           ///< voluntary context switches (Linux), idle wake-ups (macOS)
    std::optional<std::uint64_t> bytesWritten;      ///< to storage
    std::optional<std::uint64_t> openDescriptors;
};

/// macOS: proc_pid_rusage on itself. Linux: getrusage and /proc/self.
class SelfUsage {
public:
    virtual ~SelfUsage() = default;
    virtual SelfUsageReading read() = 0;
};

} // namespace meridal
