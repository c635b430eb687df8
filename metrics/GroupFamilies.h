// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "metrics/MetricsWriter.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace meridal {

/// A figure of applications, told now and, but for the last, recorded.
struct GroupFamily {
    MetricFamily family;
    const char* entry;            ///< of groups.totals
    const char* recorded;         ///< of a period of groups.history; null: not recorded
    const char* second = nullptr; ///< added to it, in both
};

inline constexpr std::array<GroupFamily, 9> groupFamilies = {{
    {{"group_cpu_seconds", MetricType::Counter, "seconds", "Processor time of an application."}, "cpuUser", "cpuUser",
        "cpuSystem"},
    {{"group_read_bytes", MetricType::Counter, "bytes", "Read from storage."}, "diskRead", "diskRead"},
    {{"group_written_bytes", MetricType::Counter, "bytes", "Written to storage."}, "diskWritten", "diskWritten"},
    {{"group_received_bytes", MetricType::Counter, "bytes", "Received by network, with IP headers."}, "received",
        "received"},
    {{"group_sent_bytes", MetricType::Counter, "bytes", "Sent by network, with IP headers."}, "sent", "sent"},
    {{"group_energy_score", MetricType::Counter, "", "Energy score times seconds."}, "energyScore", "energyScore"},
    {{"group_joules", MetricType::Counter, "joules", "Share of what the processors' packages used."}, "joules",
        "joules"},
    {{"group_resident_memory_bytes", MetricType::Gauge, "bytes", "Resident memory of all its processes."}, "resident",
        "memory"},
    {{"group_processes", MetricType::Gauge, "", "Processes."}, "processes", nullptr},
}};
inline constexpr std::size_t recordedGroupFamilies = groupFamilies.size() - 1;
static_assert(groupFamilies[recordedGroupFamilies].recorded == nullptr);

/// Labels of an application, as they are written: its name, by `identity` and `user` no two are alike.
std::string groupLabels(const std::string& name, const std::string& identity, const std::optional<std::int64_t>& user);

} // namespace meridal
