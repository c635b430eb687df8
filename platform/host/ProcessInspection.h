// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace meridal {

/// What one process has open and where; bytes as the system has them, absent where it does not tell.
struct ProcessInsight {
    std::optional<std::string> executable; ///< path
    std::optional<std::string> workingDirectory;
    std::optional<std::uint64_t> descriptors; ///< open ones
};

/// What is asked of one process at a time, since each answer costs files or calls. Main queue only.
/// Linux: /proc/PID. macOS: proc_pidinfo, proc_pidpath, sysctl.
class ProcessInspection {
public:
    virtual ~ProcessInspection() = default;
    /// What it was started with, each argument ended by a zero, or what it has put in their place since; cut where it is long.
    /// Absent when it has ended, has none (kernel threads) or may not be asked.
    virtual std::optional<std::string> arguments(std::int32_t) { return std::nullopt; }
    /// Empty when it has ended.
    virtual ProcessInsight inspect(std::int32_t) { return {}; }
};

} // namespace meridal
