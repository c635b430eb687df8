// SPDX-License-Identifier: Apache-2.0
#include "metrics/MetricFamilies.h"

#include <map>
#include <string>

namespace meridal {

void writeNetworkMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot, const MetricsOptions& options)
{
    const Value* networks = find(snapshot.interfaces, "networks");
    if (!networks || !networks->is_array()) {
        return;
    }
    struct Way {
        MetricFamily family;
        const char* entry;
    };
    constexpr Way ways[] = {
        {{"wifi_received_bytes", MetricType::Counter, "bytes", "Received on a Wi-Fi network, with link headers."},
            "received"},
        {{"wifi_sent_bytes", MetricType::Counter, "bytes", "Sent on a Wi-Fi network, with link headers."}, "sent"},
    };
    for (const Way& way : ways) {
        writer.family(way.family);
        std::map<std::string, double> bytes; // networks that are not told apart are one
        for (const Value& network : *networks) {
            const std::string bssid = text(network, "bssid").value_or("");
            const std::string name = options.wifiNames ? text(network, "name").value_or(bssid) : "";
            bytes[name] += number(network, way.entry).value_or(0);
        }
        for (const auto& [name, sum] : bytes) {
            writer.sample({{"network", name}}, sum);
        }
    }
}

} // namespace meridal
