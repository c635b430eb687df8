// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

namespace meridal {

/// How the administrator keeps users from looking at each other's processes.
struct ProcessRestriction {
    std::optional<std::uint32_t> exemptGroup; ///< its members see all processes, as root does; absent: nobody else does
    bool operator==(const ProcessRestriction&) const = default;
};

/// What local users may see of the process table by the host's own rules, which a daemon that runs as root must not undo.
/// Main queue only. Linux: the options hidepid and gid of the file system at /proc. macOS: everybody sees all.
class ProcessVisibility {
public:
    virtual ~ProcessVisibility() = default;
    /// The rule as it is now: file systems are mounted anew while we run. Absent: everybody sees all processes.
    virtual std::optional<ProcessRestriction> restriction() = 0;
    /// The user who may look at a process under a restriction. Absent: root alone, or the process has ended.
    virtual std::optional<std::uint32_t> ownerOf(std::int32_t pid) = 0;
};

} // namespace meridal
