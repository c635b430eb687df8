// SPDX-License-Identifier: Apache-2.0
#include "client/views/ApplicationsView.h"

#include "base/Text.h"
#include "client/plot/ShareChart.h"
#include "client/screen/Format.h"
#include "client/screen/TextTable.h"
#include "client/screen/WallClock.h"
#include "client/views/Answers.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <set>
#include <utility>

namespace meridal {

namespace {

constexpr int barColumns = 20;
constexpr int roomForAllFigures = 120;

constexpr std::array<std::pair<std::string_view, ApplicationFigure>, 5> figureNames = {{
    {"cpu", ApplicationFigure::Cpu},
    {"energy", ApplicationFigure::Energy},
    {"memory", ApplicationFigure::Memory},
    {"disk", ApplicationFigure::Disk},
    {"network", ApplicationFigure::Network},
}};

constexpr std::array<const char*, 11> sums = {"cpuUser", "cpuSystem", "diskRead", "diskWritten", "received", "sent",
    "wakeups", "energyScore", "joules", "started", "ended"};

bool isApplication(const Value& group)
{
    const auto kind = text(group, "kind");
    return kind != "other" && kind != "kernel";
}

std::optional<double> sumOf(const Value& group, std::string_view first, std::string_view second)
{
    const auto one = number(group, first);
    const auto other = number(group, second);
    return one || other ? std::optional(one.value_or(0) + other.value_or(0)) : std::nullopt;
}

/// Whether energy is told in joules, not as a score.
bool hasJoules(const Value& groups)
{
    return std::any_of(
        groups.begin(), groups.end(), [](const Value& group) { return number(group, "joules").has_value(); });
}

std::optional<double> amountOf(const Value& group, ApplicationFigure figure, bool isJoules)
{
    switch (figure) {
    case ApplicationFigure::Cpu:
        return sumOf(group, "cpuUser", "cpuSystem");
    case ApplicationFigure::Energy:
        return number(group, isJoules ? "joules" : "energyScore");
    case ApplicationFigure::Memory:
        return number(group, "memory");
    case ApplicationFigure::Disk:
        return sumOf(group, "diskRead", "diskWritten");
    case ApplicationFigure::Network:
        return sumOf(group, "received", "sent");
    }
    return std::nullopt;
}

/// What a figure is the sum of, where the parts are of interest.
struct Way {
    const char* key;
    const char* name;
};
std::optional<std::pair<Way, Way>> waysOf(ApplicationFigure figure)
{
    switch (figure) {
    case ApplicationFigure::Disk:
        return {{{"diskRead", "read"}, {"diskWritten", "written"}}};
    case ApplicationFigure::Network:
        return {{{"received", "received"}, {"sent", "sent"}}};
    case ApplicationFigure::Cpu:
    case ApplicationFigure::Energy:
    case ApplicationFigure::Memory:
        break;
    }
    return std::nullopt;
}

std::string formatSeconds(double seconds)
{
    return seconds < 60 ? fmt::format("{:.1f} s", seconds) : formatDuration(seconds);
}

std::string formatJoules(double joules)
{
    constexpr double kilo = 1000;
    return joules < kilo       ? formatFigure(joules) + " J"
        : joules < kilo * kilo ? formatFigure(joules / kilo) + " kJ"
                               : formatFigure(joules / kilo / kilo) + " MJ";
}

std::string wordsOf(const Value& group, ApplicationFigure figure, bool isJoules)
{
    const auto amount = amountOf(group, figure, isJoules);
    if (!amount) {
        return "-";
    }
    switch (figure) {
    case ApplicationFigure::Cpu:
        return formatSeconds(*amount);
    case ApplicationFigure::Energy:
        return isJoules ? formatJoules(*amount) : formatFigure(*amount);
    case ApplicationFigure::Memory:
    case ApplicationFigure::Disk:
    case ApplicationFigure::Network:
        break;
    }
    return formatBytes(*amount);
}

const char* titleOf(ApplicationFigure figure)
{
    switch (figure) {
    case ApplicationFigure::Cpu:
        return "CPU TIME";
    case ApplicationFigure::Energy:
        return "ENERGY";
    case ApplicationFigure::Memory:
        return "MEMORY";
    case ApplicationFigure::Disk:
        return "DISK";
    case ApplicationFigure::Network:
        return "NETWORK";
    }
    return "";
}

/// Lines of a plot: a name, and a period's figure.
using CourseFigures = std::vector<std::pair<std::string, std::optional<double> (*)(const Value& period)>>;

std::optional<double> perSecond(const Value& period, const std::optional<double>& amount)
{
    const auto seconds = number(period, "seconds");
    return amount && seconds && *seconds > 0 ? std::optional(*amount / *seconds) : std::nullopt;
}

template <ApplicationFigure Figure, bool IsJoules = false>
std::optional<double> rateOf(const Value& period)
{
    return perSecond(period, amountOf(period, Figure, IsJoules));
}

std::optional<double> percentOfCore(const Value& period)
{
    const auto rate = rateOf<ApplicationFigure::Cpu>(period);
    return rate ? std::optional(*rate * 100) : std::nullopt;
}

std::pair<std::string, CourseFigures> courseOf(ApplicationFigure figure, bool isJoules)
{
    switch (figure) {
    case ApplicationFigure::Cpu:
        return {"% of one core", {{"CPU", percentOfCore}}};
    case ApplicationFigure::Energy:
        return isJoules
            ? std::pair<std::string, CourseFigures>{"W", {{"power", rateOf<ApplicationFigure::Energy, true>}}}
            : std::pair<std::string, CourseFigures>{"", {{"energy score", rateOf<ApplicationFigure::Energy>}}};
    case ApplicationFigure::Memory:
        return {"B",
            {{"mean", [](const Value& period) { return number(period, "memory"); }},
                {"peak", [](const Value& period) { return number(period, "memoryPeak"); }}}};
    case ApplicationFigure::Disk:
        return {"B/s",
            {{"read", [](const Value& period) { return perSecond(period, number(period, "diskRead")); }},
                {"written", [](const Value& period) { return perSecond(period, number(period, "diskWritten")); }}}};
    case ApplicationFigure::Network:
        return {"B/s",
            {{"received", [](const Value& period) { return perSecond(period, number(period, "received")); }},
                {"sent", [](const Value& period) { return perSecond(period, number(period, "sent")); }}}};
    }
    return {};
}

double secondsOfStep(const Value& course)
{
    constexpr std::array<std::pair<std::string_view, double>, 5> steps = {
        {{"minute", 60}, {"quarter", 900}, {"hour", 3600}, {"day", day}, {"month", 31 * day}}};
    const auto step = text(course, "step");
    const auto* found = std::find_if(steps.begin(), steps.end(), [&](const auto& each) { return each.first == step; });
    return found != steps.end() ? found->second : 0;
}

/// Adds what can be added. Means of different times have no sum, nor have peaks.
void addTo(Value& other, const Value& group)
{
    if (other.is_null()) {
        other = {{"group", "other"}, {"name", "other"}, {"kind", "other"}};
    }
    for (const char* key : sums) {
        if (const auto added = number(group, key)) {
            other[key] = number(other, key).value_or(0) + *added;
        }
    }
    for (const char* key : {"memory", "memoryPeak", "processesPeak"}) {
        other.erase(key);
    }
}

} // namespace

ApplicationFigure applicationFigureNamed(std::string_view name)
{
    const auto* found =
        std::find_if(figureNames.begin(), figureNames.end(), [&](const auto& each) { return each.first == name; });
    return found != figureNames.end() ? found->second : ApplicationFigure::Cpu;
}

std::string applicationFigureTitle(ApplicationFigure figure)
{
    switch (figure) {
    case ApplicationFigure::Cpu:
        return "CPU time";
    case ApplicationFigure::Energy:
        return "Energy";
    case ApplicationFigure::Memory:
        return "Memory, the mean while it ran";
    case ApplicationFigure::Disk:
        return "Disk";
    case ApplicationFigure::Network:
        return "Network";
    }
    return {};
}

std::vector<std::string> applicationLabels(const Value& groups)
{
    std::map<std::string, std::set<std::string>> identities; // by name
    std::map<std::string, int> uses;
    for (const Value& group : groups) {
        const std::string name = text(group, "name").value_or("");
        identities[name].insert(text(group, "group").value_or(""));
        ++uses[name];
    }
    std::vector<std::string> labels;
    for (const Value& group : groups) {
        const std::string name = text(group, "name").value_or("");
        const std::string identity = text(group, "group").value_or("?");
        const auto user = integer(group, "user");
        std::string label = name.empty() ? identity : name;
        if (isApplication(group) && !name.empty() && uses[name] > 1) {
            const bool isOfUsers = identities[name].size() == 1;
            label += isOfUsers ? user ? " (user " + std::to_string(*user) + ")" : "" : " (" + identity + ")";
        }
        labels.push_back(printable(label));
    }
    return labels;
}

Value foldedApplications(const Value& groups, std::size_t most)
{
    Value shown = Value::array();
    Value last = Value::array();
    std::vector<const Value*> beyond;
    Value other;
    for (const Value& group : groups) {
        if (text(group, "kind") == "other") {
            other = group;
        } else if (!isApplication(group)) {
            last.push_back(group);
        } else if (most == 0 || shown.size() < most) {
            shown.push_back(group);
        } else {
            beyond.push_back(&group);
        }
    }
    for (const Value* group : beyond) {
        addTo(other, *group);
    }
    if (!other.is_null()) {
        shown.push_back(std::move(other));
    }
    shown.insert(shown.end(), last.begin(), last.end());
    return shown;
}

Lines applicationLines(const Value& groups, ApplicationFigure figure, int room)
{
    if (!groups.is_array() || groups.empty()) {
        return {{{Style::Plain, "no application is recorded in this time"}}};
    }
    const bool isJoules = hasJoules(groups);
    double largest = 0;
    double sum = 0;
    for (const Value& group : groups) {
        const double amount = amountOf(group, figure, isJoules).value_or(0);
        largest = std::max(largest, amount);
        sum += amount;
    }
    std::vector<TableColumn> columns = {{.title = "APPLICATION", .width = 28, .gap = 1, .least = 12}, {"", barColumns},
        {titleOf(figure), 12, Align::Right}, {"SHARE", 8, Align::Right}};
    for (const auto& [name, other] : figureNames) {
        if (other != figure && (room == 0 || room >= roomForAllFigures)) {
            columns.push_back({titleOf(other), 12, Align::Right});
        }
    }
    TextTable table(columns, room);
    const auto labels = applicationLabels(groups);
    for (std::size_t place = 0; place < groups.size(); ++place) {
        const Value& group = groups[place];
        const Style style = isApplication(group) ? Style::Plain : Style::Faint;
        const auto amount = amountOf(group, figure, isJoules);
        std::vector<TableCell> cells = {{style, labels[place]},
            {isApplication(group) ? Style::Title : Style::Faint, shareBar(amount.value_or(0), largest, barColumns)},
            {style, wordsOf(group, figure, isJoules)},
            {style, amount && sum > 0 ? fmt::format("{:.1f} %", *amount / sum * 100) : "-"}};
        for (const auto& [name, other] : figureNames) {
            if (other != figure && cells.size() < columns.size()) {
                cells.emplace_back(style, wordsOf(group, other, isJoules));
            }
        }
        table.add(std::move(cells));
    }
    return table.lines();
}

SvgBars applicationPicture(const Value& groups, ApplicationFigure figure, std::string title)
{
    const bool isJoules = hasJoules(groups);
    const bool isEnergy = figure == ApplicationFigure::Energy;
    const std::string unit = figure == ApplicationFigure::Cpu ? "s" : !isEnergy ? "B" : isJoules ? "J" : "score";
    SvgBars chart{.title = std::move(title), .unit = unit, .parts = {}, .bars = {}};
    const auto ways = waysOf(figure);
    if (ways) {
        chart.parts = {ways->first.name, ways->second.name};
    }
    const auto labels = applicationLabels(groups);
    for (std::size_t place = 0; place < groups.size(); ++place) {
        const Value& group = groups[place];
        SvgBar bar{.label = labels[place], .parts = {}, .words = wordsOf(group, figure, isJoules)};
        if (ways) {
            bar.parts = {number(group, ways->first.key).value_or(0), number(group, ways->second.key).value_or(0)};
        } else {
            bar.parts = {amountOf(group, figure, isJoules).value_or(0)};
        }
        chart.bars.push_back(std::move(bar));
    }
    return chart;
}

Plot applicationPlot(const Value& course, ApplicationFigure figure, const std::string& time, double from, double until)
{
    static const Value none = Value::array();
    const Value* given = find(course, "periods");
    const Value& periods = given && given->is_array() ? *given : none;
    const auto [unit, lines] = courseOf(figure, hasJoules(periods));
    const std::string name = text(course, "name").value_or(text(course, "group").value_or(""));
    Plot plot{.title = name + ", " + time,
        .unit = unit,
        .from = from,
        .until = until,
        .series = {},
        .least = 0,
        .most = std::nullopt};
    for (const auto& [lineName, valueOf] : lines) {
        PlotSeries series{.name = lineName, .points = {}, .interval = secondsOfStep(course)};
        for (const Value& period : periods) {
            const auto start = number(period, "time");
            const auto value = valueOf(period);
            const double end = start.value_or(0) + number(period, "seconds").value_or(0);
            if (start && value && end > from && *start < until) { // in the middle of what is shown of it
                const double middle = (std::max(*start, from) + std::min(end, until)) / 2;
                series.points.push_back({.time = middle, .value = *value});
            }
        }
        if (!series.points.empty() || plot.series.empty()) {
            plot.series.push_back(std::move(series));
        }
    }
    return plot;
}

std::string applicationCsv(const Value& rows)
{
    constexpr std::array<const char*, 19> keys = {"time", "seconds", "group", "name", "kind", "user", "cpuUser",
        "cpuSystem", "memory", "memoryPeak", "diskRead", "diskWritten", "received", "sent", "wakeups", "energyScore",
        "joules", "started", "ended"};
    return csvOf(rows, keys);
}

} // namespace meridal
