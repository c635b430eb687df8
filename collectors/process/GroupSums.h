// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace meridal {

/// What somebody has used since some moment. Grows only, but for nobody's fault.
struct GroupSums {
    double cpuUserSeconds = 0;
    double cpuSystemSeconds = 0;
    std::uint64_t bytesRead = 0; ///< from storage
    std::uint64_t bytesWritten = 0;
    std::uint64_t bytesReceived = 0; ///< by network, with IP headers
    std::uint64_t bytesSent = 0;
    std::uint64_t wakeups = 0;
    double energyScore = 0;       ///< score times seconds
    std::optional<double> joules; ///< share of what the processors' package used; absent where nobody tells that
    std::optional<double> graphicsSeconds; ///< of engines of graphics processors; absent: none was seen to use one
    std::uint64_t processesStarted = 0;
    std::uint64_t processesEnded = 0;

    double cpuSeconds() const { return cpuUserSeconds + cpuSystemSeconds; }
    GroupSums& operator+=(const GroupSums& other);
};

/// What somebody holds at one moment, or held at most.
struct GroupLevels {
    std::uint64_t residentBytes = 0;
    std::uint64_t footprintBytes = 0;
    std::optional<std::uint64_t> graphicsBytes = {}; ///< held for it by graphics processors
    std::uint32_t processes = 0;
};

enum class GroupKind : std::uint8_t {
    Application, ///< what the grouping rule gives
    Other,       ///< groups beyond the bound, folded into one
    Kernel,      ///< kernel threads, interrupts, traffic that no process has
};

/// To clients: "application", "other", "kernel".
const char* groupKindName(GroupKind kind);

/// One application: processes that belong together, and what they have used since the daemon's start.
struct GroupTotals {
    std::uint32_t number = 0; ///< as long as the daemon lives no other group has it
    GroupKind kind = GroupKind::Application;
    /// Stays the same over restarts and reboots: "unit:nginx.service", "app:org.mozilla.firefox", "container:web",
    /// "bundle:com.example.editor", "exe:/usr/bin/make"; "other" and "kernel". Valid UTF-8.
    std::string identity;
    std::string name; ///< for people, valid UTF-8
    std::optional<std::uint32_t>
        owner; ///< the user whose process heads it; part of who it is. Absent: unknown, or nobody's
    GroupSums sums;
    GroupLevels now;
    GroupLevels peak;
};

/// What one process has used of the machine over a minute.
struct ProcessMinute {
    std::int32_t pid = 0;
    double startTime = 0;    ///< s since 1970
    std::string name;        ///< valid UTF-8
    std::uint32_t group = 0; ///< GroupTotals::number
    double cpuSeconds = 0;
    std::uint64_t memoryBytes = 0;  ///< footprint at the end, resident where that is unknown
    std::uint64_t diskBytes = 0;    ///< read and written
    std::uint64_t networkBytes = 0; ///< received and sent
};

} // namespace meridal
