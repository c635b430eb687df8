// SPDX-License-Identifier: Apache-2.0
#include "metrics/Metrics.h"

#include "metrics/MetricFamilies.h"

namespace meridal {

std::string metricsText(const MetricsSnapshot& snapshot, const MetricsOptions& options, MetricsFormat format)
{
    MetricsWriter writer(format);
    writer.family({.name = "up", .help = "Whether the daemon answered."});
    writer.sample({}, snapshot.isUp ? 1.0 : 0.0);
    if (snapshot.isUp) {
        writeDaemonMetrics(writer, snapshot);
        writeGroupMetrics(writer, snapshot);
        writeTrafficMetrics(writer, snapshot);
        writeNetworkMetrics(writer, snapshot, options);
        writeUptimeMetrics(writer, snapshot);
        writeSensorMetrics(writer, snapshot);
        writeDiskMetrics(writer, snapshot);
        writeBatteryMetrics(writer, snapshot);
        writePressureMetrics(writer, snapshot);
        if (options.all) {
            writeMachineMetrics(writer, snapshot);
        }
        const auto series = static_cast<double>(writer.series());
        const auto dropped = static_cast<double>(writer.dropped());
        writer.family({.name = "metrics_series", .help = "Series above this line."});
        writer.sample({}, series);
        writer.family({.name = "metrics_dropped_series",
            .help = "Series left out, as there were too many or two would have had the same labels."});
        writer.sample({}, dropped);
    }
    return writer.finish();
}

} // namespace meridal
