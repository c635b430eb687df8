// SPDX-License-Identifier: Apache-2.0
#include "metrics/MetricFamilies.h"

namespace meridal {

void writeTrafficMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot)
{
    const Value* capture = find(snapshot.status, "capture");
    const Value* owners = capture ? find(*capture, "owners") : nullptr;
    if (!owners) {
        return;
    }
    writer.family({.name = "traffic_bytes",
        .type = MetricType::Counter,
        .unit = "bytes",
        .help = "Network traffic by whose it is, with IP headers, while it was counted."});
    for (const char* owner : {"process", "kernel", "unattributed"}) {
        const Value* ways = find(*owners, owner);
        for (const char* direction : {"received", "sent"}) {
            if (ways) {
                writer.sample({{"owner", owner}, {"direction", direction}}, number(*ways, direction));
            }
        }
    }
}

} // namespace meridal
