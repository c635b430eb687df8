// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "metrics/MetricsSnapshot.h"
#include "metrics/MetricsWriter.h"

namespace meridal {

// The families of each topic, in a source of its own. What the daemon did not tell is left out.
void writeDaemonMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot);
void writeSensorMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot);
void writeDiskMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot);
void writeBatteryMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot);
void writePressureMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot);
void writeMachineMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot);
void writeGroupMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot);
void writeTrafficMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot);
void writeNetworkMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot, const MetricsOptions& options);
void writeUptimeMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot);

} // namespace meridal
