// SPDX-License-Identifier: Apache-2.0
#include "client/plot/Sparkline.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <optional>
#include <vector>

namespace meridal {

namespace {

constexpr std::array<const char*, 8> heights = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr double middleHeight = 3; // of what never changes

/// The mean of what was measured in each column's time.
std::vector<std::optional<double>> meansOf(std::span<const PlotPoint> points, double from, double until, int columns)
{
    std::vector<double> sums(static_cast<std::size_t>(columns));
    std::vector<double> counts(sums.size());
    for (const PlotPoint& point : points) {
        const double across = (point.time - from) / (until - from) * columns;
        if (!(across >= 0) || across > columns || !std::isfinite(point.value)) {
            continue;
        }
        const std::size_t column = std::min(static_cast<std::size_t>(across), sums.size() - 1);
        sums[column] += point.value;
        counts[column] += 1;
    }
    std::vector<std::optional<double>> means;
    for (std::size_t column = 0; column < sums.size(); ++column) {
        means.push_back(counts[column] > 0 ? std::optional(sums[column] / counts[column]) : std::nullopt);
    }
    return means;
}

} // namespace

std::string sparkline(std::span<const PlotPoint> points, double from, double until, int columns)
{
    if (columns < 1 || !(until > from)) {
        return {};
    }
    const auto means = meansOf(points, from, until, columns);
    std::optional<double> low;
    std::optional<double> high;
    for (const auto& mean : means) {
        low = mean ? std::min(*mean, low.value_or(*mean)) : low;
        high = mean ? std::max(*mean, high.value_or(*mean)) : high;
    }
    if (!low) {
        return {};
    }
    std::string line;
    const double span = *high - *low;
    const double level = *high == 0 ? 0 : middleHeight; // nothing at all the time is no half of anything
    for (const auto& mean : means) {
        const double place = mean && span > 0 ? (*mean - *low) / span * (heights.size() - 1) : level;
        line += mean ? heights.at(static_cast<std::size_t>(std::lround(place))) : " ";
    }
    return line;
}

} // namespace meridal
