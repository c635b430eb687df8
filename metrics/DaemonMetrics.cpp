// SPDX-License-Identifier: Apache-2.0
#include "metrics/MetricFamilies.h"

#include "base/Text.h"

namespace meridal {

namespace {

struct DaemonFigure {
    MetricFamily family;
    const char* part; ///< of the status
    const char* entry;
};

constexpr DaemonFigure daemonFigures[] = {
    {{"daemon_cpu_seconds", MetricType::Counter, "seconds", "Processor time that the daemon itself used."}, "usage",
        "cpuSeconds"},
    {{"daemon_written_bytes", MetricType::Counter, "bytes", "What the daemon wrote to disks."}, "usage",
        "bytesWritten"},
    {{"daemon_wakeups", MetricType::Counter, "", "How often the daemon woke a processor."}, "usage", "wakeups"},
    {{"daemon_resident_memory_bytes", MetricType::Gauge, "bytes", "Memory of the daemon, shared pages included."},
        "usage", "residentBytes"},
    {{"daemon_open_descriptors", MetricType::Gauge, "", "Open files and sockets of the daemon."}, "usage",
        "openDescriptors"},
    {{"daemon_requests", MetricType::Counter, "", "Questions that clients asked."}, "transport", "requests"},
    {{"daemon_connections", MetricType::Gauge, "", "Clients connected now."}, "transport", "openConnections"},
    {{"daemon_database_bytes", MetricType::Gauge, "bytes", "What the record takes on the disk."}, "databases", "bytes"},
    {{"daemon_dropped_statements", MetricType::Counter, "", "Rows given up because the disk did not take them."},
        "databases", "statementsDropped"},
    {{"capture_dropped_frames", MetricType::Counter, "", "Frames that went by uncounted."}, "capture", "droppedFrames"},
};

} // namespace

void writeDaemonMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot)
{
    const Value& status = snapshot.status;
    writer.family({.name = "build", .type = MetricType::Info, .help = "What the daemon is and runs on."});
    if (const auto release = text(status, "release")) {
        writer.sample({{"version", *release}, {"system", text(status, "system").value_or("")}}, 1);
    }
    writer.family({.name = "limitation", .type = MetricType::Info, .help = "What cannot be measured here, and why."});
    if (const Value* limitations = find(status, "limitations"); limitations && limitations->is_object()) {
        for (const auto& [key, reason] : limitations->items()) {
            writer.sample({{"key", key}, {"reason", reason.is_string() ? reason.get<std::string>() : ""}}, 1);
        }
    }
    for (const DaemonFigure& figure : daemonFigures) {
        const Value* part = find(status, figure.part);
        writer.family(figure.family);
        if (part) {
            writer.sample({}, number(*part, figure.entry));
        }
    }
}

} // namespace meridal
