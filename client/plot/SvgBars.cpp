// SPDX-License-Identifier: Apache-2.0
#include "client/plot/SvgBars.h"

#include "base/Text.h"
#include "client/plot/Plot.h"
#include "client/plot/PlotAxis.h"
#include "client/plot/SvgPage.h"
#include "client/plot/SvgText.h"
#include "client/screen/Format.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace meridal {

namespace {

// The picture, in its own units.
constexpr double barsWidth = 960;
constexpr double barsLeft = 220;
constexpr double barsRight = 740;
constexpr double barsTop = 44;
constexpr double barPitch = 22;
constexpr double barThickness = 14;
constexpr double axisHeight = 28;
constexpr double legendHeight = 26;
constexpr int barLabelColumns = 28;
constexpr int mostBarMarks = 6;

/// A unit in which figures have few digits, and what one of it is.
struct BarUnit {
    std::string name;
    double size = 1;
};

BarUnit unitFor(const std::string& unit, double largest)
{
    constexpr double aMinute = 60;
    constexpr double anHour = 60 * aMinute;
    if (unit == "s") {
        const bool isHours = largest >= 3 * anHour;
        return isHours ? BarUnit{"h", anHour} : largest >= 3 * aMinute ? BarUnit{"min", aMinute} : BarUnit{"s", 1};
    }
    Plot largestAlone;
    largestAlone.unit = unit;
    largestAlone.series.emplace_back().points.emplace_back().value = largest;
    const Plot readable = inReadableUnit(std::move(largestAlone));
    return {readable.unit, readable.unitScale};
}

double sumOf(const SvgBar& bar)
{
    double sum = 0;
    for (const double part : bar.parts) {
        sum += std::max(part, 0.0);
    }
    return sum;
}

class BarDrawing {
public:
    explicit BarDrawing(const SvgBars& chart) : chart_(chart)
    {
        double largest = 0;
        for (const SvgBar& bar : chart.bars) {
            largest = std::max(largest, sumOf(bar));
        }
        unit_ = unitFor(chart.unit, largest);
        axis_ = valueAxis(0, largest > 0 ? largest / unit_.size : 1, mostBarMarks);
    }

    double bottom() const
    {
        return barsTop + barPitch * static_cast<double>(std::max<std::size_t>(chart_.bars.size(), 1));
    }
    double height() const { return bottom() + axisHeight + (chart_.parts.empty() ? 0 : legendHeight); }

    std::string all() const
    {
        const std::string unit = unit_.name.empty() ? "" : " (" + unit_.name + ")";
        std::string out =
            fmt::format("<text class=\"title\" x=\"16\" y=\"26\">{}</text>\n", svgText(chart_.title + unit));
        if (chart_.bars.empty()) {
            return out
                + fmt::format("<text class=\"faint\" x=\"{}\" y=\"{}\" text-anchor=\"middle\">nothing recorded in this "
                              "time</text>\n",
                    barsWidth / 2, barsTop + barThickness);
        }
        out += axis();
        for (std::size_t index = 0; index < chart_.bars.size(); ++index) {
            out += bar(chart_.bars[index], barsTop + barPitch * static_cast<double>(index));
        }
        for (std::size_t index = 0; index < chart_.parts.size(); ++index) {
            constexpr double legendPitch = 120;
            out += svgLegend(barsLeft + legendPitch * static_cast<double>(index), bottom() + axisHeight + 12, index,
                chart_.parts[index]);
        }
        return out;
    }

private:
    double x(double amount) const { return barsLeft + axis_.place(amount / unit_.size) * (barsRight - barsLeft); }

    std::string axis() const
    {
        std::string out;
        for (int number = 0; number <= axis_.intervals(); ++number) {
            const double value = axis_.mark(number);
            out += fmt::format("<line class=\"grid\" x1=\"{x:.1f}\" y1=\"{}\" x2=\"{x:.1f}\" y2=\"{}\"/>"
                               "<text class=\"faint\" x=\"{x:.1f}\" y=\"{}\" text-anchor=\"middle\">{}</text>\n",
                barsTop - 4, bottom(), bottom() + 16, svgText(axis_.label(value)),
                fmt::arg("x", x(value * unit_.size)));
        }
        return out;
    }

    std::string bar(const SvgBar& bar, double y) const
    {
        const std::string label = fitLeft(printable(bar.label), barLabelColumns);
        std::string out = fmt::format("<text x=\"{}\" y=\"{}\" text-anchor=\"end\">{}</text>", barsLeft - 8, y + 12,
            svgText(label.substr(0, label.find_last_not_of(' ') + 1)));
        double before = 0;
        for (std::size_t index = 0; index < bar.parts.size(); ++index) {
            const double part = std::max(bar.parts[index], 0.0);
            out += fmt::format("<rect x=\"{:.1f}\" y=\"{}\" width=\"{:.2f}\" height=\"{}\" fill=\"{}\"/>", x(before), y,
                x(before + part) - x(before), barThickness, svgColour(index));
            before += part;
        }
        return out + fmt::format("<text x=\"{:.1f}\" y=\"{}\">{}</text>\n", x(before) + 6, y + 12, svgText(bar.words));
    }

    const SvgBars& chart_;
    BarUnit unit_;
    ValueAxis axis_;
};

} // namespace

std::string barsSvg(const SvgBars& chart)
{
    const BarDrawing drawing(chart);
    return svgDocument(barsWidth, drawing.height(), chart.title, drawing.all());
}

std::string barsElement(const SvgBars& chart)
{
    const BarDrawing drawing(chart);
    return svgElement(barsWidth, drawing.height(), chart.title, drawing.all());
}

} // namespace meridal
