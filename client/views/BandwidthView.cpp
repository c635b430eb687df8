// SPDX-License-Identifier: Apache-2.0
#include "client/views/BandwidthView.h"

#include "base/Text.h"

#include <algorithm>

namespace meridal {

namespace {

std::string bandwidthLabel(const Value& total, const std::string& by)
{
    if ((by == "network" || by == "station") && integer(total, "key") == -1) {
        return "(no Wi-Fi)";
    }
    const std::string name = text(total, "name").value_or("");
    std::string label = text(total, "bssid").value_or(""); // first, as names may be too long to be shown whole
    label += (label.empty() || name.empty() ? "" : "  ") + name;
    return printable(label.empty() ? text(total, "key").value_or("?") : label);
}

} // namespace

std::vector<AmountBar> bandwidthBars(const Value& totals, const std::string& by)
{
    std::vector<AmountBar> bars;
    for (const Value& total : totals) {
        bars.push_back({.label = bandwidthLabel(total, by),
            .upload = std::max(0.0, number(total, "upload").value_or(0)),
            .download = std::max(0.0, number(total, "download").value_or(0))});
    }
    if (by == "interface" || by == "network" || by == "station") { // times stay in their order, things stand by size
        std::stable_sort(bars.begin(), bars.end(),
            [](const AmountBar& a, const AmountBar& b) { return a.upload + a.download > b.upload + b.download; });
    }
    return bars;
}

} // namespace meridal
