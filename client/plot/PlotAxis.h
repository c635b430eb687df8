// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace meridal {

/// s since 1970, beyond which no clock goes: doubles no longer tell one second from the next, nor does a year fit a tm.
constexpr double latestTime = 1e11;

/// The vertical axis of a plot: marks at round values, the lowest and the highest of which bound it.
struct ValueAxis {
    double low = 0;
    double high = 1;
    double step = 1; ///< between marks

    int intervals() const;                 ///< marks minus one
    double mark(int number) const;         ///< 0 is the lowest
    std::string label(double value) const; ///< with as many decimals as the step needs
    double place(double value) const;      ///< 0 at the low end, 1 at the high end; clamped
};

/// An axis that holds all values from `low` to `high`, with at most so many intervals (at least one).
ValueAxis valueAxis(double low, double high, int mostIntervals);

/// A mark of the horizontal axis.
struct TimeMark {
    double time = 0; ///< s since 1970
    std::string label;
};

/// Marks at round local times between two moments, at most so many; the labels say as much as the step needs: "14:30",
/// "Tue 12:00", "03 Nov", "Nov 2023".
std::vector<TimeMark> timeMarks(double from, double until, int most);

} // namespace meridal
