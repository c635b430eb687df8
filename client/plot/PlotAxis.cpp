// SPDX-License-Identifier: Apache-2.0
#include "client/plot/PlotAxis.h"

#include "client/screen/WallClock.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <ctime>

namespace meridal {

namespace {

constexpr double minute = 60; // s
constexpr double hour = 60 * minute;
constexpr std::array timeSteps = {minute, 2 * minute, 5 * minute, 10 * minute, 15 * minute, 30 * minute, hour, 2 * hour,
    3 * hour, 6 * hour, 12 * hour, day, 2 * day, 7 * day, 14 * day, 28 * day, 56 * day, 91 * day, 182 * day, 364 * day};

/// 1, 2 or 5 times a power of ten, not below `least`.
double roundStep(double least)
{
    const double power = std::pow(10.0, std::floor(std::log10(least)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (factor * power >= least * (1 - 1e-9)) {
            return factor * power;
        }
    }
    return 10 * power;
}

bool localTime(double time, std::tm& parts)
{
    const auto seconds = static_cast<std::time_t>(time);
    return ::localtime_r(&seconds, &parts) != nullptr;
}

std::string timeLabel(double time, double step)
{
    const char* const format = step < 12 * hour ? "%H:%M"
        : step < day                            ? "%a %H:%M"
        : step < 91 * day                       ? "%d %b"
                                                : "%b %Y";
    return formatTime(time, format);
}

} // namespace

int ValueAxis::intervals() const { return static_cast<int>(std::lround((high - low) / step)); }

double ValueAxis::mark(int number) const { return low + number * step; }

std::string ValueAxis::label(double value) const
{
    const double size = std::max(std::abs(low), std::abs(high));
    if (size >= 1e7 || step < 1e-4) {
        return fmt::format("{:.3g}", value);
    }
    const int decimals = std::clamp(static_cast<int>(std::ceil(-std::log10(step) - 1e-9)), 0, 4);
    const double shown = std::abs(value) < step * 1e-6 ? 0 : value; // no "-0"
    return fmt::format("{:.{}f}", shown, decimals);
}

double ValueAxis::place(double value) const { return std::clamp((value - low) / (high - low), 0.0, 1.0); }

ValueAxis valueAxis(double low, double high, int mostIntervals)
{
    if (!std::isfinite(low) || !std::isfinite(high) || low > high) {
        return {};
    }
    if (low == 0 && high == 0) {
        return {}; // what never was anything runs along the ground
    }
    const double size = std::max({std::abs(low), std::abs(high), 1e-6});
    if (high - low < size * 1e-6) { // a line that never moves still needs a height to run in
        low -= size * 0.01;
        high += size * 0.01;
    }
    ValueAxis axis;
    const int most = std::max(mostIntervals, 1);
    // Rounding the ends outwards can cost an interval at either end: widen the step until they fit.
    for (double least = (high - low) / most;; least = axis.step * 1.5) {
        axis.step = roundStep(least);
        axis.low = std::floor(low / axis.step + 1e-9) * axis.step;
        axis.high = std::ceil(high / axis.step - 1e-9) * axis.step;
        if (axis.intervals() <= most || axis.step > size * 10) {
            return axis;
        }
    }
}

std::vector<TimeMark> timeMarks(double from, double until, int most)
{
    std::vector<TimeMark> marks;
    if (!(from >= 0) || !(until > from) || until > latestTime || most < 1) {
        return marks;
    }
    const double least = (until - from) / most;
    const auto found = std::find_if(timeSteps.begin(), timeSteps.end(), [&](double step) { return step >= least; });
    const double step = found == timeSteps.end() ? roundStep(least) : *found;
    std::tm parts{};
    if (!localTime(until, parts)) {
        return marks;
    }
    // Round in local time. One offset for the whole axis: a change to summer time in between moves the marks by an hour.
    const auto offset = static_cast<double>(parts.tm_gmtoff);
    for (double time = std::ceil((from + offset) / step) * step - offset; time <= until; time += step) {
        marks.push_back({.time = time, .label = timeLabel(time, step)});
    }
    return marks;
}

} // namespace meridal
