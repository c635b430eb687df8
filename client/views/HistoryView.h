// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/plot/Plot.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// What was recorded of one series.
struct HistoryCurve {
    std::string label; ///< what no other series of this machine is called
    Value answer;      ///< "samples", "values", "interval", "unit" of history.samples
};

/// The answer with one of its figures only.
Value withFigure(const Value& answer, std::string_view figure);

/// The measurements of one of an answer's figures, oldest first. `now` (s since 1970) tells how old they are: long-term
/// samples stand for the longer the older they are.
std::vector<PlotPoint> historyPoints(const Value& answer, std::size_t figure, double now);

/// What to draw of samples between two moments in seconds since 1970: one line a figure, one plot a unit. `time` is what
/// people call the time.
std::vector<Plot> historyPlots(
    std::span<const HistoryCurve> curves, const std::string& time, double from, double until, double now);

/// s that a sample of the long-term resolution stands for at some age.
double longTermInterval(double age);

/// The daemon's finest resolution that reaches back to a moment and does not tell more of the stretch than a plot can
/// show. The long-term one reaches back for ever, and may be finer than others of the same reach.
std::string resolutionFor(double from, double until, double now);

/// The samples as comma-separated values: a heading, then a row a moment in UTC. Gaps have no rows. Minima and maxima follow
/// their figures where the daemon told them.
std::string historyCsv(std::span<const HistoryCurve> curves);

/// A field of comma-separated values: quoted where it must be. What a spreadsheet would run as a formula is made text.
std::string csvField(const std::string& text);

} // namespace meridal
