// SPDX-License-Identifier: Apache-2.0
#include "metrics/FigureFamilies.h"
#include "metrics/MetricFamilies.h"

namespace meridal {

void writePressureMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot)
{
    writer.family(pressureFamily);
    if (const Value* pressure = find(snapshot.machine, "pressure")) {
        for (const PressureFigure& figure : pressureFigures) {
            if (const auto percent = number(*pressure, figure.entry)) {
                writer.sample({{"resource", figure.resource}, {"kind", figure.kind}}, *percent / fromPercent);
            }
        }
    }
    writer.family({.name = "machine_memory_kills",
        .type = MetricType::Counter,
        .help = "Processes that the kernel killed for want of memory since the boot."});
    if (const Value* memory = find(snapshot.machine, "memory")) {
        writer.sample({}, number(*memory, "oomkills"));
    }
}

} // namespace meridal
