// SPDX-License-Identifier: Apache-2.0
#include "client/plot/RecentCourses.h"

#include "client/plot/Sparkline.h"
#include "client/screen/Format.h"

#include <algorithm>
#include <cmath>

namespace meridal {

void RecentCourses::add(const std::string& key, double time, double value)
{
    if (!std::isfinite(time) || !std::isfinite(value)) {
        return;
    }
    latest_ = time;
    std::vector<PlotPoint>& points = courses_[key];
    std::erase_if(points, [&](const PlotPoint& point) { return point.time >= time || point.time < time - span_; });
    points.push_back({.time = time, .value = value});
}

void RecentCourses::fill(const std::string& key, std::vector<PlotPoint> recorded)
{
    if (recorded.empty()) {
        return;
    }
    const double last = recorded.back().time;
    std::vector<PlotPoint>& points = courses_[key];
    std::erase_if(points, [last](const PlotPoint& point) { return point.time <= last; });
    points.insert(points.begin(), recorded.begin(), recorded.end());
    latest_ = std::max(latest_, last);
}

std::string RecentCourses::spark(const std::string& key, int columns) const
{
    const auto course = courses_.find(key);
    return course != courses_.end() ? sparkline(course->second, latest_ - span_, latest_, columns) : "";
}

std::string RecentCourses::title() const { return "LAST " + upperCase(formatSpan(span_)); }

} // namespace meridal
