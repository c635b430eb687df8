// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/screen/StyledText.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

/// The lowest and the highest of the measurements that a point is the mean of.
struct PlotBand {
    double low = 0;
    double high = 0;
};

/// One measurement of a plot.
struct PlotPoint {
    double time = 0; ///< s since 1970
    double value = 0;
    std::optional<PlotBand> band = {};
    double interval = 0; ///< s to its neighbours, where that is more than the series'
};

/// A line of a plot.
struct PlotSeries {
    std::string name;              ///< for the legend, where there are several
    std::vector<PlotPoint> points; ///< oldest first, finite
    double interval = 0;           ///< s between neighbours; a distance of more than 1.5 of it is a gap. 0: no gaps
    bool averageOverTime = false;  ///< the average is that of the line between the points, not of the points
};

/// Figures over a stretch of time, for a terminal (plotLines) or a browser (plotSvg). Texts may be anything.
struct Plot {
    std::string title;
    std::string unit; ///< "°C"; of all series. "B", "B/s" and "Hz" are drawn in the multiple that suits them
    double from = 0;  ///< s since 1970; what lies outside is left out
    double until = 0;
    std::vector<PlotSeries> series;
    std::optional<double> least; ///< the axis reaches down to this at least; 0 for rates and shares
    std::optional<double> most;  ///< and up to this
    double unitScale = 1;        ///< what inReadableUnit() has divided by
};

/// What a series amounts to.
struct PlotSummary {
    double minimum = 0;
    double average = 0;
    double maximum = 0;
    std::size_t count = 0;
};

/// Nothing for a series without points.
std::optional<PlotSummary> summarise(const PlotSeries& series);

/// The stretches of a series between its gaps: a gap is a distance of more than 1.5 intervals, or time running backwards.
std::vector<std::span<const PlotPoint>> runsOf(const PlotSeries& series);

/// The points of each series that lie within the plot's time, in the order of the series.
Plot clipped(Plot plot);

/// Bytes as KiB, MiB, GiB, hertz as MHz, GHz: in the unit in which the largest figure has few digits. Other units stay.
Plot inReadableUnit(Plot plot);

/// Bytes and bytes a second of a plot in a readable unit, each figure in the multiple that suits itself: next to a peak in
/// GiB an average in MiB is no 0. Nothing for other units.
std::optional<std::string> bytesForPeople(const Plot& plot, double value);

/// The lowest and the highest value that the axis must hold, bands included; nothing when there is no point.
std::optional<std::pair<double, double>> extentOf(const Plot& plot);

/// The plot as text of so many columns, the drawing itself so many rows high: title, braille cells with axes, bands as
/// lighter cells behind them, and a line of minimum, average and maximum a series. Without points one line says so. Sizes are brought into sensible bounds.
Lines plotLines(const Plot& plot, int columns, int rows);

} // namespace meridal
