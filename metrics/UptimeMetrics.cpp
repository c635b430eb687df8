// SPDX-License-Identifier: Apache-2.0
#include "metrics/MetricFamilies.h"

namespace meridal {

void writeUptimeMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot)
{
    const Value& boots = snapshot.boots;
    if (const Value* current = find(boots, "current")) {
        writer.family({.name = "boot_time_seconds", .unit = "seconds", .help = "When this boot began, since 1970."});
        writer.sample({}, number(*current, "started"));
        writer.family({.name = "asleep_seconds",
            .type = MetricType::Counter,
            .unit = "seconds",
            .help = "Time asleep in this boot."});
        writer.sample({}, number(*current, "asleep"));
    }
    writer.family({.name = "availability_ratio",
        .unit = "ratio",
        .help = "Share of all recorded time in which the machine was up; sleep counts neither way."});
    writer.sample({}, number(boots, "availability"));
    writer.family({.name = "boots", .help = "Recorded boots that are over, by how they ended."});
    if (const Value* ends = find(boots, "ends"); ends && ends->is_object()) {
        for (const auto& [end, count] : ends->items()) {
            writer.sample({{"end", end}}, number(*ends, end));
        }
    }
    const Value* rows = find(boots, "boots");
    if (rows && rows->is_array() && rows->size() > 1) {
        writer.family({.name = "previous_boot_unexpected",
            .help = "1 if the boot before this one ended without a farewell: a crash, or a loss of power."});
        writer.sample({}, text((*rows)[1], "end") == "crash" ? 1.0 : 0.0);
    }
}

} // namespace meridal
