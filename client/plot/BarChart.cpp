// SPDX-License-Identifier: Apache-2.0
#include "client/plot/BarChart.h"

#include "base/Text.h"
#include "client/plot/SvgText.h"
#include "client/screen/Format.h"
#include "client/screen/TextTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace meridal {

namespace {

constexpr int totalColumns = 12;
constexpr int labelGap = 2;
constexpr int shortestBar = 10;
constexpr int shortestLabel = 10;
constexpr int longestLabel = 32;

constexpr int rowHeight = 22; // SVG units
constexpr int labelWidth = 190;
constexpr int chartWidth = 420;
constexpr int figureWidth = 270;
constexpr int chartTop = 66;

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

std::string svgRow(const AmountBar& bar, double largest, int y)
{
    const double scale = largest > 0 ? chartWidth / largest : 0;
    const double download = bar.download * scale;
    const double upload = bar.upload * scale;
    const std::string label = svgText(fitLeft(bar.label, 26));
    return fmt::format("<text x=\"{}\" y=\"{}\" text-anchor=\"end\">{}</text>\n"
                       "<rect class=\"down\" x=\"{}\" y=\"{}\" width=\"{:.2f}\" height=\"14\"/>\n"
                       "<rect class=\"up\" x=\"{:.2f}\" y=\"{}\" width=\"{:.2f}\" height=\"14\"/>\n"
                       "<text x=\"{:.2f}\" y=\"{}\">{} down, {} up</text>\n",
        labelWidth - 8, y + 12, label, labelWidth, y, download, labelWidth + download, y, upload,
        labelWidth + download + upload + 6, y + 12, formatBytes(bar.download), formatBytes(bar.upload));
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

std::string barChartSvg(std::string_view title, const std::vector<AmountBar>& bars)
{
    const int width = labelWidth + chartWidth + figureWidth;
    const int height = chartTop + rowHeight * static_cast<int>(bars.size()) + 16;
    std::string svg = fmt::format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" viewBox=\"0 0 {0} {1}\" "
        "font-family=\"sans-serif\" font-size=\"12\">\n"
        "<title>{2}</title>\n"
        "<style>text{{fill:#222}}.down{{fill:#2a78d6}}.up{{fill:#e08a1e}}</style>\n"
        "<rect width=\"{0}\" height=\"{1}\" fill=\"#fff\"/>\n"
        "<text x=\"16\" y=\"28\" font-size=\"16\">{2}</text>\n"
        "<rect class=\"down\" x=\"16\" y=\"42\" width=\"12\" height=\"12\"/><text x=\"34\" y=\"52\">download</text>\n"
        "<rect class=\"up\" x=\"116\" y=\"42\" width=\"12\" height=\"12\"/><text x=\"134\" y=\"52\">upload</text>\n",
        width, height, svgText(title));
    const double largest = largestOf(bars);
    int y = chartTop;
    for (const AmountBar& bar : bars) {
        svg += svgRow(bar, largest, y);
        y += rowHeight;
    }
    return svg + "</svg>\n";
}

} // namespace meridal
