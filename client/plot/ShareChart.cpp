// SPDX-License-Identifier: Apache-2.0
#include "client/plot/ShareChart.h"

#include "base/Text.h"
#include "client/plot/SvgText.h"
#include "client/screen/Format.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace meridal {

namespace {

constexpr int shareRowHeight = 22; // SVG units
constexpr int shareLabelWidth = 210;
constexpr int shareLabelColumns = 28;
constexpr int shareChartWidth = 520;
constexpr int shareFigureWidth = 170;
constexpr int shareChartTop = 48;

} // namespace

std::string shareBar(double amount, double largest, int columns)
{
    if (!(amount > 0) || !(largest > 0) || !std::isfinite(amount / largest)) {
        return {};
    }
    constexpr int eighths = 8;
    return blocks(
        std::clamp(static_cast<int>(std::lround(amount / largest * columns * eighths)), 1, columns * eighths));
}

std::string shareChartSvg(std::string_view title, std::span<const ShareBar> bars)
{
    const int width = shareLabelWidth + shareChartWidth + shareFigureWidth;
    const int height = shareChartTop + shareRowHeight * static_cast<int>(bars.size()) + 16;
    std::string svg = fmt::format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" viewBox=\"0 0 {0} {1}\" role=\"img\">\n"
        "<title>{2}</title>\n"
        "<style>svg{{background:#fff;color:#1d232b;font:12px system-ui,sans-serif}}text{{fill:currentColor}}"
        "rect{{fill:#2a6fdb}}\n"
        "@media(prefers-color-scheme:dark){{svg{{background:#171b21;color:#e6e9ee}}}}</style>\n"
        "<text x=\"16\" y=\"28\" font-size=\"15\" font-weight=\"600\">{2}</text>\n",
        width, height, svgText(title));
    double largest = 0;
    for (const ShareBar& bar : bars) {
        largest = std::max(largest, bar.amount);
    }
    int y = shareChartTop;
    for (const ShareBar& bar : bars) {
        const double length = largest > 0 ? std::max(bar.amount, 0.0) / largest * shareChartWidth : 0;
        svg += fmt::format(
            "<text x=\"{}\" y=\"{}\" text-anchor=\"end\">{}</text>"
            "<rect x=\"{}\" y=\"{}\" width=\"{:.2f}\" height=\"14\"/><text x=\"{:.2f}\" y=\"{}\">{}</text>\n",
            shareLabelWidth - 8, y + 12, svgText(fitLeft(printable(bar.label), shareLabelColumns)), shareLabelWidth, y,
            length, shareLabelWidth + length + 6, y + 12, svgText(bar.words));
        y += shareRowHeight;
    }
    return svg + "</svg>\n";
}

} // namespace meridal
