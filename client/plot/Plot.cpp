// SPDX-License-Identifier: Apache-2.0
#include "client/plot/Plot.h"

#include "base/Text.h"
#include "client/plot/PlotAxis.h"
#include "client/screen/Format.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

constexpr int leastColumns = 30;
constexpr int mostColumns = 1000;
constexpr int leastRows = 3;
constexpr int mostRows = 200;
constexpr int columnsPerTimeMark = 14;
constexpr int rowsPerValueMark = 3;
constexpr double gapIntervals = 1.5;

/// How a line of a plot is told from others, without colours, too.
struct Stroke {
    Style style = Style::Plain;
    int on = 1;  ///< dots that are drawn, and
    int off = 0; ///< dots that are not, along the line
    const char* sample = "── ";
};

/// In order; the last one serves all that follow.
constexpr std::array<Stroke, 4> strokes = {{{Style::Plain, 1, 0, "── "}, {Style::Medium, 3, 3, "╌╌ "},
    {Style::High, 1, 2, "·· "}, {Style::Faint, 8, 3, "─╌ "}}};

const Stroke& strokeOf(std::size_t series) { return strokes.at(std::min(series, strokes.size() - 1)); }

/// A drawing in braille cells, each 2 dots wide and 4 high. Dot (0, 0) is at the lower left.
class Canvas {
public:
    Canvas(int columns, int rows) : columns_(columns), rows_(rows), cells_(static_cast<std::size_t>(columns * rows)) { }

    int width() const { return columns_ * 2; }
    int height() const { return rows_ * 4; }

    void line(std::pair<int, int> from, std::pair<int, int> to, const Stroke& stroke)
    {
        const int steps = std::max({std::abs(to.first - from.first), std::abs(to.second - from.second), 1});
        for (int step = 0; step <= steps; ++step) {
            const auto between = [&](int first, int last) {
                return first + static_cast<int>(std::lround(static_cast<double>(last - first) * step / steps));
            };
            const int x = between(from.first, to.first);
            const int y = between(from.second, to.second);
            if ((x + y) % (stroke.on + stroke.off) < stroke.on) { // flat or steep, there is something of it
                dot(x, y, stroke.style);
            }
        }
    }

    /// A stretch of one column of dots as ground that lines stand out from.
    void shade(int x, int low, int high)
    {
        for (int y = std::max(low, 0); x >= 0 && x < width() && y <= std::min(high, height() - 1); ++y) {
            cells_[index(x / 2, (height() - 1 - y) / 4)].isShaded = true;
        }
    }

    /// One row of cells, 0 at the top, as pieces of one style each.
    Line row(int number) const
    {
        Line line;
        for (int column = 0; column < columns_; ++column) {
            const Cell& cell = cells_[index(column, number)];
            const Style style = cell.dots == 0 && cell.isShaded ? Style::Faint : cell.style;
            if (line.empty() || line.back().style != style) {
                line.push_back({style, {}});
            }
            line.back().text += cell.dots != 0 ? character(cell.dots) : cell.isShaded ? "░" : " ";
        }
        return line;
    }

private:
    struct Cell {
        unsigned dots = 0; ///< in the order of the Unicode block
        bool isShaded = false;
        Style style = Style::Plain;
    };

    std::size_t index(int column, int row) const { return static_cast<std::size_t>(row * columns_ + column); }

    void dot(int x, int y, Style style)
    {
        if (x < 0 || y < 0 || x >= width() || y >= height()) {
            return;
        }
        // Dots 1 to 3 and 7 run down the left side of a cell, 4 to 6 and 8 down the right one.
        constexpr unsigned bits[2][4] = {{0, 1, 2, 6}, {3, 4, 5, 7}};
        const int fromTop = height() - 1 - y;
        Cell& cell = cells_[index(x / 2, fromTop / 4)];
        cell.dots |= 1U << bits[x % 2][fromTop % 4];
        cell.style = style;
    }

    /// U+2800 and the dots as its low byte, in UTF-8.
    static std::string character(unsigned dots)
    {
        return {'\xE2', static_cast<char>(0xA0U | (dots >> 6U)), static_cast<char>(0x80U | (dots & 0x3FU))};
    }

    int columns_;
    int rows_;
    std::vector<Cell> cells_;
};

/// Where things of a plot are on a canvas.
class Places {
public:
    Places(const Canvas& canvas, const Plot& plot, const ValueAxis& axis)
        : canvas_(canvas), plot_(plot), axis_(axis) { }

    int x(double time) const
    {
        const double across = (time - plot_.from) / (plot_.until - plot_.from);
        return static_cast<int>(std::lround(across * (canvas_.width() - 1)));
    }
    int y(double value) const { return static_cast<int>(std::lround(axis_.place(value) * (canvas_.height() - 1))); }
    std::pair<int, int> of(const PlotPoint& point) const { return {x(point.time), y(point.value)}; }

private:
    const Canvas& canvas_;
    const Plot& plot_;
    const ValueAxis& axis_;
};

/// From point to point, as the line runs.
void drawBand(Canvas& canvas, const Places& places, std::span<const PlotPoint> run)
{
    for (std::size_t index = 0; index < run.size(); ++index) {
        const PlotPoint& to = run[index];
        const PlotPoint& from = index > 0 && run[index - 1].band ? run[index - 1] : to;
        const int first = places.x(from.time);
        const int last = places.x(to.time);
        for (int x = first; to.band && x <= last; ++x) {
            const double across = last > first ? static_cast<double>(x - first) / (last - first) : 1;
            canvas.shade(x, places.y(from.band->low + (to.band->low - from.band->low) * across),
                places.y(from.band->high + (to.band->high - from.band->high) * across));
        }
    }
}

void draw(Canvas& canvas, const Plot& plot, const ValueAxis& axis)
{
    const Places places(canvas, plot, axis);
    for (std::size_t index = 0; index < plot.series.size(); ++index) {
        for (const auto run : runsOf(plot.series[index])) {
            drawBand(canvas, places, run);
            Stroke stroke = strokeOf(index);
            stroke.off = run.size() > 1 ? stroke.off : 0; // a lone point must not fall into what is left out
            for (std::size_t point = 0; point < run.size(); ++point) {
                canvas.line(places.of(run[point == 0 ? 0 : point - 1]), places.of(run[point]), stroke);
            }
        }
    }
}

/// The labels of the vertical axis, by row.
std::vector<std::string> valueLabels(const ValueAxis& axis, int rows)
{
    std::vector<std::string> labels(static_cast<std::size_t>(rows));
    for (int mark = 0; mark <= axis.intervals(); ++mark) {
        const double fromTop = 1 - axis.place(axis.mark(mark));
        labels[static_cast<std::size_t>(std::lround(fromTop * (rows - 1)))] = axis.label(axis.mark(mark));
    }
    return labels;
}

/// The horizontal axis and the labels below it, each `margin` columns to the right.
std::pair<Line, Line> timeAxis(const Plot& plot, int columns, int margin)
{
    std::string ruler = "└";
    std::string labels;
    int labelled = 0; // columns that the labels fill
    int ruled = 0;    // and the ruler
    for (const TimeMark& mark : timeMarks(plot.from, plot.until, std::max(1, columns / columnsPerTimeMark))) {
        const double across = (mark.time - plot.from) / (plot.until - plot.from);
        const int column = static_cast<int>(std::lround(across * (columns - 1)));
        const int start = column - displayWidth(mark.label) / 2;
        if (start < labelled || start + displayWidth(mark.label) > columns || column < ruled) {
            continue;
        }
        for (; ruled < column; ++ruled) {
            ruler += "─";
        }
        ruler += "┴";
        ++ruled;
        labels += std::string(static_cast<std::size_t>(start - labelled), ' ') + mark.label;
        labelled = start + displayWidth(mark.label) + 1;
        labels += ' ';
    }
    for (; ruled < columns; ++ruled) {
        ruler += "─";
    }
    const std::string space(static_cast<std::size_t>(margin), ' ');
    return {{{Style::Faint, space + ruler}}, {{Style::Faint, space + " " + labels}}};
}

Line summaryLine(const Plot& plot, std::size_t index, const ValueAxis& axis)
{
    const PlotSeries& series = plot.series[index];
    Line line;
    if (plot.series.size() > 1) {
        line.push_back({strokeOf(index).style, strokeOf(index).sample + printable(series.name) + "  "});
    }
    const auto summary = summarise(series);
    if (!summary) {
        line.push_back({Style::Faint, "no measurements"});
        return line;
    }
    ValueAxis finer = axis; // a digit more than the marks have
    finer.step = axis.step / 20;
    const std::string unit = plot.unit.empty() ? "" : " " + printable(plot.unit);
    const auto words = [&](double value) { return bytesForPeople(plot, value).value_or(finer.label(value) + unit); };
    line.push_back({Style::Plain,
        fmt::format(
            "min {}   avg {}   max {}", words(summary->minimum), words(summary->average), words(summary->maximum))});
    return line;
}

double lowestOf(const PlotPoint& point) { return point.band ? point.band->low : point.value; }
double highestOf(const PlotPoint& point) { return point.band ? point.band->high : point.value; }

Line titleLine(const Plot& plot)
{
    Line line{{Style::Title, printable(plot.title)}};
    if (!plot.unit.empty()) {
        line.push_back({Style::Faint, "  " + printable(plot.unit)});
    }
    return line;
}

} // namespace

std::optional<PlotSummary> summarise(const PlotSeries& series)
{
    if (series.points.empty()) {
        return std::nullopt;
    }
    PlotSummary summary{.minimum = series.points.front().value,
        .average = 0,
        .maximum = series.points.front().value,
        .count = series.points.size()};
    for (const PlotPoint& point : series.points) {
        summary.minimum = std::min(summary.minimum, lowestOf(point));
        summary.maximum = std::max(summary.maximum, highestOf(point));
        summary.average += point.value / static_cast<double>(summary.count);
    }
    const double span = series.points.back().time - series.points.front().time;
    if (series.averageOverTime && span > 0) {
        summary.average = 0;
        for (std::size_t index = 1; index < series.points.size(); ++index) {
            const PlotPoint& from = series.points[index - 1];
            const PlotPoint& until = series.points[index];
            summary.average += (from.value + until.value) / 2 * (until.time - from.time) / span;
        }
    }
    return summary;
}

std::vector<std::span<const PlotPoint>> runsOf(const PlotSeries& series)
{
    std::vector<std::span<const PlotPoint>> runs;
    const std::span<const PlotPoint> points = series.points;
    std::size_t start = 0;
    for (std::size_t index = 1; index <= points.size(); ++index) {
        const double distance = index < points.size() ? points[index].time - points[index - 1].time : -1;
        const double interval =
            index < points.size() ? std::max({series.interval, points[index - 1].interval, points[index].interval}) : 0;
        const bool isTooFar = interval > 0 && distance > gapIntervals * interval;
        if (index == points.size() || distance < 0 || isTooFar) {
            runs.push_back(points.subspan(start, index - start));
            start = index;
        }
    }
    return runs;
}

Plot clipped(Plot plot)
{
    for (PlotSeries& series : plot.series) {
        std::erase_if(series.points, [&](const PlotPoint& point) {
            return !std::isfinite(point.value) || !(point.time >= plot.from && point.time <= plot.until);
        });
        for (PlotPoint& point : series.points) {
            const bool isBand = point.band && point.band->low <= point.value && point.value <= point.band->high
                && std::isfinite(point.band->high - point.band->low);
            point.band = isBand ? point.band : std::nullopt;
        }
    }
    return plot;
}

Plot inReadableUnit(Plot plot)
{
    constexpr std::array<std::string_view, 7> bytes = {"", "Ki", "Mi", "Gi", "Ti", "Pi", "Ei"};
    constexpr std::array<std::string_view, 7> decimal = {"", "k", "M", "G", "T", "P", "E"};
    const bool isBytes = plot.unit == "B" || plot.unit == "B/s";
    const auto extent = extentOf(plot);
    if (!extent || (!isBytes && plot.unit != "Hz")) {
        return plot;
    }
    const double factor = isBytes ? 1024 : 1000;
    double scale = 1;
    std::size_t prefix = 0;
    const double largest = std::max(std::abs(extent->first), std::abs(extent->second));
    while (largest / scale >= factor && prefix + 1 < bytes.size()) {
        scale *= factor;
        ++prefix;
    }
    plot.unitScale = scale;
    plot.unit = std::string(isBytes ? bytes.at(prefix) : decimal.at(prefix)) + plot.unit;
    for (PlotSeries& series : plot.series) {
        for (PlotPoint& point : series.points) {
            point.value /= scale;
            point.band =
                point.band ? std::optional(PlotBand{point.band->low / scale, point.band->high / scale}) : std::nullopt;
        }
    }
    plot.least = plot.least ? std::optional(*plot.least / scale) : std::nullopt;
    plot.most = plot.most ? std::optional(*plot.most / scale) : std::nullopt;
    return plot;
}

std::optional<std::string> bytesForPeople(const Plot& plot, double value)
{
    if (plot.unit == "B/s" || plot.unit.ends_with("iB/s")) {
        return formatByteRate(value * plot.unitScale);
    }
    const bool isBytes = plot.unit == "B" || plot.unit.ends_with("iB");
    return isBytes ? std::optional(formatBytes(value * plot.unitScale)) : std::nullopt;
}

std::optional<std::pair<double, double>> extentOf(const Plot& plot)
{
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    for (const PlotSeries& series : plot.series) {
        for (const PlotPoint& point : series.points) {
            low = std::min(low, lowestOf(point));
            high = std::max(high, highestOf(point));
        }
    }
    if (low > high) {
        return std::nullopt;
    }
    return std::pair(std::min(low, plot.least.value_or(low)), std::max(high, plot.most.value_or(high)));
}

Lines plotLines(const Plot& given, int columns, int rows)
{
    const Plot plot = inReadableUnit(clipped(given));
    columns = std::clamp(columns, leastColumns, mostColumns);
    rows = std::clamp(rows, leastRows, mostRows);
    Lines lines{titleLine(plot)};
    const auto bounds = extentOf(plot);
    if (!bounds || !(plot.until > plot.from)) {
        lines.push_back({{Style::Faint, "no measurements in this time"}});
        return lines;
    }
    const ValueAxis axis = valueAxis(bounds->first, bounds->second, std::max(1, (rows - 1) / rowsPerValueMark));
    const std::vector<std::string> labels = valueLabels(axis, rows);
    int margin = 0;
    for (const std::string& label : labels) {
        margin = std::max(margin, displayWidth(label) + 1);
    }
    Canvas canvas(columns - margin - 1, rows);
    draw(canvas, plot, axis);
    for (int row = 0; row < rows; ++row) {
        const std::string& label = labels[static_cast<std::size_t>(row)];
        Line line{{Style::Faint, fitRight(label, margin - 1) + (label.empty() ? " │" : " ┤")}};
        for (Span& span : canvas.row(row)) {
            line.push_back(std::move(span));
        }
        lines.push_back(std::move(line));
    }
    auto [ruler, times] = timeAxis(plot, columns - margin - 1, margin);
    lines.push_back(std::move(ruler));
    lines.push_back(std::move(times));
    for (std::size_t index = 0; index < plot.series.size(); ++index) {
        lines.push_back(summaryLine(plot, index, axis));
    }
    return lines;
}

} // namespace meridal
