// SPDX-License-Identifier: Apache-2.0
#include "metrics/GroupFamilies.h"
#include "metrics/MetricFamilies.h"

#include <string>
#include <vector>

namespace meridal {

void writeGroupMetrics(MetricsWriter& writer, const MetricsSnapshot& snapshot)
{
    const Value* groups = find(snapshot.groups, "groups");
    if (!groups || !groups->is_array()) {
        return;
    }
    writer.family({.name = "groups_since_timestamp_seconds",
        .unit = "seconds",
        .help = "From when on the applications' figures count, since 1970."});
    writer.sample({}, number(snapshot.groups, "since"));
    std::vector<std::string> labels;
    for (const Value& entry : *groups) {
        labels.push_back(
            groupLabels(text(entry, "name").value_or(""), text(entry, "group").value_or(""), integer(entry, "user")));
    }
    for (const GroupFamily& figure : groupFamilies) {
        writer.family(figure.family);
        for (std::size_t place = 0; place < labels.size(); ++place) {
            const Value& entry = (*groups)[place];
            if (const auto value = number(entry, figure.entry)) {
                const double more = figure.second ? number(entry, figure.second).value_or(0) : 0;
                writer.sampleOf(labels[place], *value + more);
            }
        }
    }
}

} // namespace meridal
