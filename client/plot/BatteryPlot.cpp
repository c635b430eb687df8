// SPDX-License-Identifier: Apache-2.0
#include "client/plot/BatteryPlot.h"

#include "client/plot/PlotAxis.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>
#include <vector>

namespace meridal {

Plot batteryPlot(const Value& rows, const std::string& title, const std::string& unit, double until)
{
    std::map<std::string, std::vector<PlotPoint>> changes; // by battery
    double from = until;
    for (const Value& row : rows) {
        const auto time = number(row, "time");
        const auto value = number(row, "value");
        // A clock that was wrong once leaves rows of the future.
        if (time && value && std::isfinite(*value) && std::abs(*time) < latestTime && *time <= until) {
            changes[text(row, "key").value_or("")].push_back({.time = *time, .value = *value});
            from = std::min(from, *time);
        }
    }
    Plot plot{.title = title,
        .unit = unit,
        .from = from,
        .until = until,
        .series = {},
        .least = std::nullopt,
        .most = std::nullopt};
    for (auto& [key, points] : changes) {
        std::reverse(points.begin(), points.end());
        std::stable_sort(
            points.begin(), points.end(), [](const PlotPoint& a, const PlotPoint& b) { return a.time < b.time; });
        PlotSeries series{.name = key, .points = {}, .interval = 0, .averageOverTime = true};
        for (const PlotPoint& change : points) {
            if (!series.points.empty()) {
                series.points.push_back({.time = change.time, .value = series.points.back().value});
            }
            series.points.push_back(change);
        }
        series.points.push_back({.time = until, .value = series.points.back().value});
        plot.series.push_back(std::move(series));
    }
    return plot;
}

} // namespace meridal
