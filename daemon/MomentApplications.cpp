// SPDX-License-Identifier: Apache-2.0
#include "daemon/MomentApplications.h"

#include "daemon/ApplicationHistory.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace meridal {

namespace {

using Figure = double (*)(const RecordedGroup&);

constexpr std::size_t largestByEach = 10;
constexpr std::size_t mostProcesses = 40;
/// Beyond that the periods before and after say nothing of the minutes around.
constexpr double longestComparison = 1200; // s

double rounded(double figure)
{
    constexpr double digits = 1e4;
    return std::round(figure * digits) / digits;
}

constexpr std::array<Figure, 5> rankings = {[](const RecordedGroup& group) { return group.sums.cpuSeconds(); },
    [](const RecordedGroup& group) { return static_cast<double>(group.levels.footprintBytes); },
    [](const RecordedGroup& group) { return static_cast<double>(group.sums.bytesRead + group.sums.bytesWritten); },
    [](const RecordedGroup& group) { return static_cast<double>(group.sums.bytesReceived + group.sums.bytesSent); },
    [](const RecordedGroup& group) { return group.sums.energyScore; }};

/// Those that are among the largest by any figure, by processor time; what is nobody's comes last.
std::vector<const RecordedGroup*> largest(const MomentRecord& record)
{
    std::vector<const RecordedGroup*> shown;
    for (const RecordedGroup& group : record.then->groups) {
        shown.push_back(&group);
    }
    std::set<const RecordedGroup*> chosen;
    for (const Figure figure : rankings) {
        std::stable_sort(
            shown.begin(), shown.end(), [figure](const auto* a, const auto* b) { return figure(*a) > figure(*b); });
        for (std::size_t place = 0; place < std::min(shown.size(), largestByEach); ++place) {
            chosen.insert(shown[place]);
        }
    }
    std::stable_sort(shown.begin(), shown.end(),
        [](const auto* a, const auto* b) { return a->sums.cpuSeconds() > b->sums.cpuSeconds(); });
    std::stable_partition(
        shown.begin(), shown.end(), [](const auto* group) { return group->kind == GroupKind::Application; });
    std::erase_if(
        shown, [&](const auto* group) { return group->kind == GroupKind::Application && chosen.count(group) == 0; });
    return shown;
}

Value describe(const RecordedProcess& process)
{
    Value entry{{"pid", process.pid}, {"name", process.name}, {"started", process.startTime},
        {"cpu", rounded(process.cpuSeconds)}, {"memory", process.memoryBytes}, {"disk", process.diskBytes},
        {"network", process.networkBytes}};
    if (!process.identity.empty()) {
        entry["group"] = process.identity;
    }
    return entry;
}

} // namespace

void addApplications(const MomentRecord& record, Value& answer)
{
    Value applications = Value::array();
    Value processes = Value::array();
    if (record.then && record.then->until > record.then->from) {
        for (const RecordedGroup* group : largest(record)) {
            applications.push_back(describeRecordedGroup(*group));
        }
        std::vector<RecordedProcess> ordered = record.then->processes;
        std::stable_sort(
            ordered.begin(), ordered.end(), [](const auto& a, const auto& b) { return a.cpuSeconds > b.cpuSeconds; });
        for (std::size_t place = 0; place < std::min(ordered.size(), mostProcesses); ++place) {
            processes.push_back(describe(ordered[place]));
        }
        answer["applicationsFrom"] = record.then->from;
        answer["applicationsUntil"] = record.then->until;
    }
    answer["applications"] = std::move(applications);
    answer["processes"] = std::move(processes);
}

namespace {

struct Level {
    std::string name;
    double before = 0;
    double after = 0;
};
using Levels = std::map<std::pair<std::string, std::optional<std::uint32_t>>, Level>;

Levels levelsOf(
    const MomentRecord& record, const std::function<double(const RecordedMoment&, const RecordedGroup&)>& of)
{
    Levels levels;
    const auto take = [&](const RecordedMoment& moment, double Level::*side) {
        for (const RecordedGroup& group : moment.groups) {
            if (group.kind == GroupKind::Application) {
                Level& level = levels[{group.identity, group.owner}];
                level.name = group.name;
                level.*side = of(moment, group);
            }
        }
    };
    take(*record.earlier, &Level::before);
    take(*record.later, &Level::after);
    return levels;
}

} // namespace

void addApplicationChanges(const MomentRecord& record, Value& changes)
{
    if (!record.earlier || !record.later || record.earlier->until <= record.earlier->from
        || record.later->until <= record.later->from
        || record.later->until - record.earlier->from > longestComparison) {
        return;
    }
    constexpr double percent = 100;
    const auto cpu = [](const RecordedMoment& moment, const RecordedGroup& group) {
        return percent * group.sums.cpuSeconds() / (moment.until - moment.from);
    };
    const auto memory = [](const RecordedMoment&, const RecordedGroup& group) {
        return static_cast<double>(group.levels.footprintBytes);
    };
    const auto add = [&](const Levels& levels, const char* what, const char* unit, double factor, double least) {
        for (const auto& [key, level] : levels) {
            const double low = std::min(level.before, level.after);
            const double high = std::max(level.before, level.after);
            if (high - low >= least && high >= factor * low) {
                changes.push_back(
                    {{"time", record.then ? record.then->from : record.time}, {"what", level.name + ": " + what},
                        {"from", rounded(level.before)}, {"to", rounded(level.after)}, {"unit", unit}});
            }
        }
    };
    constexpr double quarterOfACore = 25;
    constexpr double muchMemory = 256.0 * 1024 * 1024;
    add(levelsOf(record, cpu), "CPU use of one core", "%", 2, quarterOfACore);
    add(levelsOf(record, memory), "memory", "B", 1.3, muchMemory);
}

} // namespace meridal
