// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/plot/Plot.h"

#include <map>
#include <string>
#include <vector>

namespace meridal {

/// How figures went over the last minutes, by key: what had been recorded before, then one's own readings.
class RecentCourses {
public:
    /// `span`: s that are kept of each.
    explicit RecentCourses(double span) : span_(span) { }

    /// A reading of now, s since 1970. Those of before the span, and of a clock that was set back, are forgotten.
    void add(const std::string& key, double time, double value);
    /// What was recorded, oldest first: readings go on where it ends.
    void fill(const std::string& key, std::vector<PlotPoint> recorded);
    void clear() { courses_.clear(); }

    /// One line of so many blocks up to the latest reading of all; empty where there is none.
    std::string spark(const std::string& key, int columns) const;
    /// "LAST 10 MIN", the title of a column of them.
    std::string title() const;

private:
    const double span_;
    double latest_ = 0; ///< s since 1970
    std::map<std::string, std::vector<PlotPoint>> courses_;
};

} // namespace meridal
