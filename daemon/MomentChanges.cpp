// SPDX-License-Identifier: Apache-2.0
// The part of MomentFigures that finds what changed.

#include "daemon/HistoryQuestions.h"
#include "daemon/MomentFigures.h"
#include "history/HistoryRecorder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t mostChanges = 20;
constexpr double mebibyte = 1024 * 1024;

/// Which change of a figure a person would want to be told. Both must be met.
struct ChangeRule {
    std::string_view collector;
    std::string_view unit;                   ///< of the series; empty: any
    std::string_view what;                   ///< for people; of an item its name comes in front
    std::array<std::string_view, 5> columns; ///< added up; none: the first
    double factor = 1;                       ///< at least so many times, or so small a part
    double least = 0;                        ///< and different by so much, in the unit of the series
};

// Small enough to tell what a person would have heard, felt or seen in a plot, large enough to leave out what a machine
// does all day.
constexpr std::array<ChangeRule, 15> changeRules = {{
    {"processors", "", "CPU use", {"user", "nice", "system", "interrupt", "steal"}, 1.5, 15},
    {"pressure", "", "programs waiting for the CPU", {"cpusome"}, 2, 10},
    {"pressure", "", "programs waiting for memory", {"memorysome"}, 2, 5},
    {"pressure", "", "programs waiting for disks", {"iosome"}, 2, 10},
    {"memory", "", "memory used", {"used"}, 1.1, 256 * mebibyte},
    {"swap", "", "swap used", {"swapused"}, 1.1, 128 * mebibyte},
    {"paging", "", "swap traffic", {"swapin", "swapout"}, 2, mebibyte},
    {"throughput", "", "reading", {"readbytes"}, 2, 4 * mebibyte},
    {"throughput", "", "writing", {"writtenbytes"}, 2, 4 * mebibyte},
    {"busy", "", "busy", {"busy"}, 1.5, 25},
    {"network", "", "traffic", {"received", "sent"}, 2, 512 * 1024},
    {"graphics", "", "graphics busy", {"busy"}, 1.5, 30},
    {"sensors", "°C", "temperature", {}, 1, 6},
    {"sensors", "rpm", "speed", {}, 1.2, 300},
    {"sensors", "W", "power", {}, 1.5, 5},
}};

struct CoursePoint {
    double time = 0; ///< s since 1970, of the end
    double figure = 0;
};

struct Step {
    double time = 0;
    double from = 0; ///< the means of before and after
    double to = 0;
};

/// Where a course differs most before and after.
std::optional<Step> largestStep(const std::vector<CoursePoint>& course)
{
    constexpr std::size_t manyPoints = 20;
    const std::size_t fewest = course.size() >= manyPoints ? 3 : 1; // of one resolution two points, of six seconds 18 s
    double sum = 0;
    for (const CoursePoint& point : course) {
        sum += point.figure;
    }
    std::optional<Step> found;
    double best = 0;
    double before = 0;
    for (std::size_t split = 1; split < course.size(); ++split) {
        before += course[split - 1].figure;
        const std::size_t rest = course.size() - split;
        if (split < fewest || rest < fewest) {
            continue;
        }
        const Step step{.time = course[split - 1].time,
            .from = before / static_cast<double>(split),
            .to = (sum - before) / static_cast<double>(rest)};
        // Weighed by how much stands on each side, or one odd value at the edge would win.
        const double weight = std::abs(step.to - step.from) * std::sqrt(static_cast<double>(split * rest));
        if (weight > best) {
            best = weight;
            found = step;
        }
    }
    return found;
}

std::vector<CoursePoint> courseOf(const HistoryMoment& moment, const MomentSeries& series, const ChangeRule& rule)
{
    std::vector<std::size_t> places;
    for (const std::string_view column : rule.columns) {
        if (const auto place = column.empty() ? std::nullopt : series.recorder->columnNamed(column)) {
            places.push_back(*place);
        }
    }
    if (places.empty()) {
        places.push_back(0);
    }
    std::vector<CoursePoint> course;
    for (const HistoryMoment::Sample& sample : moment.around(series.series.key, usualSlack)) {
        std::optional<double> figure;
        for (const std::size_t place : places) {
            if (place < sample.values.size() && !std::isnan(sample.values[place])) {
                figure = figure.value_or(0) + sample.values[place];
            }
        }
        if (figure && sample.until - sample.from <= 2 * HistoryMoment::minutesAround) {
            course.push_back({sample.until, *figure});
        }
    }
    return course;
}

bool matters(const Step& step, const ChangeRule& rule)
{
    const double low = std::min(step.from, step.to);
    const double high = std::max(step.from, step.to);
    return high - low >= rule.least && high >= rule.factor * low;
}

std::string titleOf(const MomentSeries& series, const ChangeRule& rule)
{
    const bool isItem = !series.series.key.empty();
    return (isItem ? series.series.name + ": " : "") + std::string(rule.what);
}

} // namespace

void addFigureChanges(const MomentRecord& record, Value& changes)
{
    Value found = Value::array();
    for (const ChangeRule& rule : changeRules) {
        for (const MomentSeries& series : record.series) {
            const auto moment = record.figures.find(series.recorder);
            if (series.collector != rule.collector || (!rule.unit.empty() && series.series.unit != rule.unit)
                || moment == record.figures.end() || !moment->second || found.size() >= mostChanges) {
                continue;
            }
            const auto step = largestStep(courseOf(*moment->second, series, rule));
            if (!step || !matters(*step, rule)) {
                continue;
            }
            const double coarse = record.isExact ? 0 : series.series.step;
            constexpr double digits = 1e4;
            const auto told = [&](double figure) { return std::round(inSteps(figure, coarse) * digits) / digits; };
            found.push_back({{"time", step->time}, {"what", titleOf(series, rule)}, {"from", told(step->from)},
                {"to", told(step->to)}, {"unit", series.series.unit}});
        }
    }
    changes.insert(changes.end(), found.begin(), found.end());
}

} // namespace meridal
