// SPDX-License-Identifier: Apache-2.0
#include "client/plot/SvgPlot.h"

#include "client/plot/PlotAxis.h"
#include "client/plot/SvgPage.h"
#include "client/plot/SvgText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>

namespace meridal {

namespace {

// The picture, in its own units.
constexpr double width = 960;
constexpr double height = 360;
constexpr double left = 72;
constexpr double right = width - 16;
constexpr double top = 44;
constexpr double bottom = height - 56;
constexpr double lineHeight = 16;
constexpr int mostValueMarks = 6;
constexpr int mostTimeMarks = 10;

class Drawing {
public:
    Drawing(const Plot& plot, const ValueAxis& axis) : plot_(plot), axis_(axis) { }

    std::string heading() const
    {
        const std::string unit = plot_.unit.empty() ? "" : svgText(" (" + plot_.unit + ")");
        return fmt::format("<text class=\"title\" x=\"{}\" y=\"24\">{}{}</text>\n", left, svgText(plot_.title), unit);
    }

    std::string axes() const
    {
        std::string out;
        for (int mark = 0; mark <= axis_.intervals(); ++mark) {
            const double value = axis_.mark(mark);
            out += fmt::format("<line class=\"grid\" x1=\"{}\" y1=\"{y:.1f}\" x2=\"{}\" y2=\"{y:.1f}\"/>"
                               "<text class=\"faint\" x=\"{}\" y=\"{:.1f}\" text-anchor=\"end\">{}</text>\n",
                left, right, left - 8, y(value) + 4, svgText(axis_.label(value)), fmt::arg("y", y(value)));
        }
        for (const TimeMark& mark : timeMarks(plot_.from, plot_.until, mostTimeMarks)) {
            out += fmt::format("<line class=\"grid\" x1=\"{x:.1f}\" y1=\"{}\" x2=\"{x:.1f}\" y2=\"{}\"/>"
                               "<text class=\"faint\" x=\"{x:.1f}\" y=\"{}\" text-anchor=\"middle\">{}</text>\n",
                top, bottom, bottom + 18, svgText(mark.label), fmt::arg("x", x(mark.time)));
        }
        return out;
    }

    /// One element a stretch in which every point has one.
    std::string bands(std::size_t index) const
    {
        std::string out;
        for (const auto run : runsOf(plot_.series[index])) {
            for (std::size_t start = 0; start < run.size(); ++start) {
                std::size_t end = start;
                while (end < run.size() && run[end].band) {
                    ++end;
                }
                if (end - start > 1) {
                    out += band(run.subspan(start, end - start), svgColour(index));
                }
                start = end;
            }
        }
        return out;
    }

    /// One element a stretch without a gap.
    std::string lines(std::size_t index) const
    {
        std::string out;
        const char* const colour = svgColour(index);
        for (const auto run : runsOf(plot_.series[index])) {
            if (run.size() == 1) {
                out += fmt::format("<circle cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"1.5\" fill=\"{}\"/>\n", x(run[0].time),
                    y(run[0].value), colour);
                continue;
            }
            out += fmt::format("<polyline class=\"line\" stroke=\"{}\" points=\"", colour);
            for (const PlotPoint& point : run) {
                fmt::format_to(std::back_inserter(out), "{:.1f},{:.1f} ", x(point.time), y(point.value));
            }
            out += "\"/>\n";
        }
        return out;
    }

    std::string legend(std::size_t index) const
    {
        const PlotSeries& series = plot_.series[index];
        const double base = bottom + 42 + lineHeight * static_cast<double>(index);
        std::string words = (series.name.empty() ? plot_.title : series.name) + ": ";
        if (const auto summary = summarise(series)) {
            ValueAxis finer = axis_;
            finer.step = axis_.step / 20;
            const bool isBytes = bytesForPeople(plot_, 0).has_value();
            const auto figure = [&](double value) { return bytesForPeople(plot_, value).value_or(finer.label(value)); };
            words += fmt::format(
                "min {}, avg {}, max {}", figure(summary->minimum), figure(summary->average), figure(summary->maximum));
            words += plot_.unit.empty() || isBytes ? "" : " " + plot_.unit;
        } else {
            words += "no measurements";
        }
        return svgLegend(left, base, index, words);
    }

private:
    std::string band(std::span<const PlotPoint> points, const char* colour) const
    {
        std::string out = fmt::format("<polygon class=\"band\" fill=\"{}\" points=\"", colour);
        for (const PlotPoint& point : points) {
            fmt::format_to(std::back_inserter(out), "{:.1f},{:.1f} ", x(point.time), y(point.band->high));
        }
        for (std::size_t place = points.size(); place > 0; --place) {
            fmt::format_to(
                std::back_inserter(out), "{:.1f},{:.1f} ", x(points[place - 1].time), y(points[place - 1].band->low));
        }
        return out + "\"/>\n";
    }

    double x(double time) const { return left + (time - plot_.from) / (plot_.until - plot_.from) * (right - left); }
    double y(double value) const { return bottom - axis_.place(value) * (bottom - top); }

    const Plot& plot_;
    const ValueAxis& axis_;
};

double heightOf(const Plot& plot) { return height + lineHeight * static_cast<double>(plot.series.size()); }

std::string drawingOf(const Plot& given)
{
    const Plot plot = inReadableUnit(clipped(given));
    const auto bounds = extentOf(plot);
    const bool isDrawable = bounds && plot.until > plot.from;
    const ValueAxis axis = isDrawable ? valueAxis(bounds->first, bounds->second, mostValueMarks) : ValueAxis{};
    const Drawing drawing(plot, axis);
    std::string body = drawing.heading();
    if (isDrawable) {
        body += drawing.axes();
        for (std::size_t index = 0; index < plot.series.size(); ++index) {
            body += drawing.bands(index);
        }
        for (std::size_t index = 0; index < plot.series.size(); ++index) {
            body += drawing.lines(index);
        }
    } else {
        body += fmt::format("<text class=\"faint\" x=\"{}\" y=\"{}\" text-anchor=\"middle\">no measurements in this "
                            "time</text>\n",
            (left + right) / 2, (top + bottom) / 2);
    }
    for (std::size_t index = 0; index < plot.series.size(); ++index) {
        body += drawing.legend(index);
    }
    return body;
}

/// Plots one below the other.
struct Stack {
    explicit Stack(std::span<const Plot> plots)
    {
        for (const Plot& plot : plots) {
            title += (title.empty() ? "" : "; ") + plot.title;
            body += fmt::format("<g transform=\"translate(0 {})\">\n{}</g>\n", tall, drawingOf(plot));
            tall += heightOf(plot);
        }
    }

    std::string title;
    std::string body;
    double tall = 0;
};

} // namespace

std::string plotSvg(const Plot& plot) { return plotsSvg({&plot, 1}); }

std::string plotsSvg(std::span<const Plot> plots)
{
    const Stack stack(plots);
    return svgDocument(width, stack.tall, stack.title, stack.body);
}

std::string plotsElement(std::span<const Plot> plots)
{
    const Stack stack(plots);
    return svgElement(width, stack.tall, stack.title, stack.body);
}

} // namespace meridal
