// SPDX-License-Identifier: Apache-2.0
#include "client/plot/BarChart.h"

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/screen/TextTable.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace meridal {

namespace {

constexpr int totalColumns = 12;
constexpr int labelGap = 2;
constexpr int shortestBar = 10;
constexpr int shortestLabel = 10;
constexpr int longestLabel = 32;

double largestOf(const std::vector<AmountBar>& bars)
{
    double largest = 0;
    for (const AmountBar& bar : bars) {
        largest = std::max(largest, bar.upload + bar.download);
    }
    return largest;
}

/// Download and upload drawn one behind the other. Only the end is drawn in eighths, and what is not nothing is seen.
Line barLine(const AmountBar& bar, double largest, int columns)
{
    const double sum = bar.download + bar.upload;
    const double share = largest > 0 ? sum / largest : 0;
    const int eighths = sum > 0 ? std::max(1, static_cast<int>(std::lround(share * columns * 8))) : 0;
    const int whole = eighths / 8;
    const int downloaded = sum > 0 ? static_cast<int>(std::lround(bar.download / sum * whole)) : 0;
    const std::string first = blocks(downloaded * 8);
    const std::string second = blocks(eighths - downloaded * 8);
    return {{Style::Title, first}, {downloaded == whole && whole > 0 ? Style::Title : Style::Medium, second}};
}

} // namespace

Lines barChartLines(const std::string& heading, const std::vector<AmountBar>& bars, int barColumns, int room)
{
    int labelColumns = std::max(shortestLabel, displayWidth(heading));
    for (const AmountBar& bar : bars) {
        labelColumns = std::max(labelColumns, displayWidth(bar.label));
    }
    labelColumns = std::min(labelColumns, longestLabel);
    const int left = room - (labelColumns + labelGap + 3 * totalColumns);
    barColumns = left >= shortestBar ? std::min(left, barColumns) : barColumns; // below that it is left out
    TextTable table({{.title = heading, .width = labelColumns, .gap = labelGap, .least = shortestLabel},
                        {.title = "", .width = barColumns, .leaves = 1},
                        {.title = "DOWNLOAD", .width = totalColumns, .align = Align::Right, .leaves = 3},
                        {.title = "UPLOAD", .width = totalColumns, .align = Align::Right, .leaves = 2},
                        {"TOTAL", totalColumns, Align::Right}},
        room);
    const double largest = largestOf(bars);
    for (const AmountBar& bar : bars) {
        table.add({bar.label, barLine(bar, largest, barColumns), formatBytes(bar.download), formatBytes(bar.upload),
            formatBytes(bar.download + bar.upload)});
    }
    return table.lines();
}

SvgBars barPicture(std::string title, const std::vector<AmountBar>& bars)
{
    SvgBars chart{.title = std::move(title), .unit = "B", .parts = {"download", "upload"}, .bars = {}};
    for (const AmountBar& bar : bars) {
        chart.bars.push_back({.label = bar.label,
            .parts = {bar.download, bar.upload},
            .words = formatBytes(bar.download) + " down, " + formatBytes(bar.upload) + " up"});
    }
    return chart;
}

} // namespace meridal
