// SPDX-License-Identifier: Apache-2.0
#include "client/views/BatteryView.h"

#include "base/Text.h"
#include "client/plot/BatteryPlot.h"
#include "client/screen/Format.h"
#include "client/screen/TextTable.h"
#include "client/screen/WallClock.h"
#include "wire/BatteryCodes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

constexpr int plotRows = 8;
constexpr double lowCharge = 20;      // %
constexpr double criticalCharge = 10; // %
constexpr double wornHealth = 80;     // %, below which makers speak of service
constexpr int internalBattery = 0;
constexpr const char* dayFormat = "%Y-%m-%d";

void addSubject(Lines& lines, std::string_view label, Line words)
{
    lines.push_back(subjectLine(label, std::move(words)));
}

std::string percentText(double percent) { return fmt::format("{:.4g} %", std::round(percent * 10) / 10); }

Style styleOfCharge(double percent, BatteryState state)
{
    return state != BatteryState::Draining || percent > lowCharge ? Style::Plain
        : percent > criticalCharge                                ? Style::Medium
                                                                  : Style::Warning;
}

BatteryState stateOf(const Value& battery) { return static_cast<BatteryState>(integer(battery, "state").value_or(-1)); }

BatterySource sourceOf(const Value& battery)
{
    const auto source = integer(battery, "source");
    return source && *source >= 0 ? static_cast<BatterySource>(*source) : BatterySource::Unknown;
}

std::string_view stateWords(BatteryState state)
{
    switch (state) {
    case BatteryState::Charged:
        return "charged";
    case BatteryState::Charging:
        return "charging";
    case BatteryState::Draining:
        return "on battery";
    case BatteryState::NotCharging:
        return "on AC power, not charging";
    case BatteryState::Optimized:
        return "on AC power, charging held back to spare the battery";
    default:
        return "state not known";
    }
}

Span conditionSpan(BatteryCondition condition)
{
    switch (condition) {
    case BatteryCondition::Poor:
        return {Style::Warning, "poor"};
    case BatteryCondition::Fair:
        return {Style::Medium, "fair"};
    case BatteryCondition::Good:
        return {Style::Plain, "good"};
    case BatteryCondition::CheckBattery:
        return {Style::Warning, "needs a check"};
    case BatteryCondition::PermanentFailure:
        return {Style::Warning, "failed for good"};
    default:
        return {Style::Plain, "not known"};
    }
}

void addCharge(Lines& lines, const Value& battery, BatteryState state)
{
    const auto percent = number(battery, "percentage");
    Line words;
    if (percent) {
        words.push_back({styleOfCharge(*percent, state), percentText(*percent) + ", "});
    } else {
        words.push_back({Style::Faint, std::string("not known") + ", "});
    }
    const bool weakAdapter = state == BatteryState::Draining && sourceOf(battery) == BatterySource::AC;
    words.push_back(
        {Style::Plain, weakAdapter ? "drained on AC power that does not suffice" : std::string(stateWords(state))});
    addSubject(lines, "charge", std::move(words));
    const auto minutes = number(battery, "time");
    if (minutes && *minutes >= 0 && (state == BatteryState::Draining || state == BatteryState::Charging)) {
        const std::string left = formatDuration(*minutes * 60);
        addSubject(lines, state == BatteryState::Draining ? "time left" : "full in", {{Style::Plain, left}});
    } else if (minutes == batteryTime::unknown
        && (state == BatteryState::Draining || state == BatteryState::Charging)) {
        addSubject(lines, state == BatteryState::Draining ? "time left" : "full in", {{Style::Faint, "not known yet"}});
    }
}

void addPower(Lines& lines, const Value& battery)
{
    std::string words;
    const auto add = [&words](const std::string& part) { words += (words.empty() ? "" : ", ") + part; };
    if (const auto power = number(battery, "power")) {
        add(fmt::format("{:.2f} W{}", std::abs(*power), *power < 0 ? " drawn" : *power > 0 ? " put in" : ""));
    }
    if (const auto millivolts = number(battery, "voltage")) {
        add(fmt::format("{:.2f} V", *millivolts / 1000));
    }
    if (const auto milliamperes = number(battery, "amperage")) {
        add(fmt::format("{:.0f} mA", std::abs(*milliamperes)));
    }
    if (!words.empty()) {
        addSubject(lines, "power", {{Style::Plain, words}});
    }
}

void addHealth(Lines& lines, const Value& battery)
{
    const auto health = number(battery, "health");
    const auto maximum = number(battery, "maximumCapacity");
    const auto design = number(battery, "designCapacity");
    if (health) {
        Line words = {{*health < wornHealth ? Style::Medium : Style::Plain, percentText(*health)}};
        if (maximum && design) {
            words.push_back({Style::Plain, fmt::format(", {:.0f} of {:.0f} mAh", *maximum, *design)});
        }
        addSubject(lines, "health", std::move(words));
    }
    if (const auto cycles = integer(battery, "cycles")) {
        addSubject(lines, "cycles", {{Style::Plain, std::to_string(*cycles)}});
    }
    if (const auto condition = integer(battery, "condition")) {
        addSubject(lines, "condition", {conditionSpan(static_cast<BatteryCondition>(*condition))});
    }
    if (const auto made = number(battery, "manufactureTime")) {
        addSubject(lines, "made on", {{Style::Plain, formatTime(*made, dayFormat, TimeZone::Utc)}});
    }
}

void addSource(Lines& lines, const Value& battery)
{
    const BatterySource source = sourceOf(battery);
    if (source == BatterySource::Unknown) {
        return;
    }
    std::string words = source == BatterySource::Battery ? "battery" : "AC power";
    if (const auto awake = number(battery, "awakeOnSource")) {
        words += " for " + formatDuration(*awake) + ", not counting sleep";
    }
    addSubject(lines, "source", {{Style::Plain, words}});
}

void addBattery(Lines& lines, const Value& battery, bool several)
{
    const bool own = integer(battery, "type") == internalBattery;
    const std::string key = printable(text(battery, "key").value_or(""));
    const std::string name = printable(text(battery, "name").value_or("?"));
    if (!lines.empty()) {
        lines.push_back({});
    }
    if (several || !own) {
        lines.push_back({{Style::Heading, own && !key.empty() ? name + " " + key : name}});
    }
    const auto state = stateOf(battery);
    addCharge(lines, battery, state);
    addPower(lines, battery);
    addHealth(lines, battery);
    addSource(lines, battery);
}

void addPeripherals(Lines& lines, const Value& peripherals)
{
    lines.push_back({});
    lines.push_back({{Style::Heading, "Connected devices"}});
    TextTable table({{"", 30}, {}});
    for (const Value& device : peripherals) {
        const auto percent = number(device, "percentage");
        const std::string level = printable(text(device, "level").value_or("-"));
        const auto state = stateOf(device);
        table.add({printable(text(device, "name").value_or("?")),
            Line{{percent ? styleOfCharge(*percent, state) : Style::Plain, percent ? percentText(*percent) : level},
                {Style::Plain, state == BatteryState::Charging ? ", charging" : ""}}});
    }
    appendLines(lines, table.lines());
}

/// One row a change. Several batteries are named.
Lines changeLines(const std::string& unit, const Value& rows)
{
    std::set<std::string> keys;
    for (const Value& row : rows) {
        keys.insert(text(row, "key").value_or(""));
    }
    TextTable table({{"", 12}, {"", 8, Align::Right, 2}, {}});
    for (const Value& row : rows) {
        table.add({formatTime(number(row, "time"), dayFormat),
            fmt::format("{:.0f}{}", number(row, "value").value_or(0), unit),
            {Style::Faint, keys.size() > 1 ? printable(text(row, "key").value_or("")) : ""}});
    }
    return table.lines();
}

void addRecorded(Lines& lines, const Plot& plot, const Value& rows, int columns)
{
    lines.push_back({});
    if (plot.series.empty()) {
        lines.push_back({{Style::Heading, plot.title}});
        if (rows.empty()) {
            lines.push_back({{Style::Faint, "nothing recorded yet"}});
        }
    } else {
        appendLines(lines, plotLines(plot, columns, plotRows));
        lines.push_back({});
    }
    appendLines(lines, changeLines(plot.unit.empty() ? "" : " " + plot.unit, rows));
}

std::string figureText(const Value& from, std::string_view key, const char* format)
{
    const auto figure = number(from, key);
    return figure ? fmt::format(fmt::runtime(format), *figure) : "?";
}

/// What a sleep took; whoever slept on AC power took it from there.
TableCell takenBy(const Value& sleep)
{
    if (const Value* onBattery = find(sleep, "onBattery"); !onBattery || *onBattery != true) {
        return {Style::Faint, "on AC power"};
    }
    std::string words = figureText(sleep, "percentPerHour", "{:.2f} %") + " an hour";
    if (const auto watts = number(sleep, "power")) {
        words += fmt::format(", {:.2f} W", std::abs(*watts));
    }
    return words;
}

Lines sleepLines(const Value& sleeps)
{
    TextTable table({{"FELL ASLEEP", 18}, {"FOR", 14, Align::Right, 2}, {"CHARGE", 20}, {"TAKEN"}});
    for (const Value& sleep : sleeps) {
        const double start = number(sleep, "start").value_or(0);
        table.add({formatTime(start, "%Y-%m-%d %H:%M"), formatDuration(number(sleep, "end").value_or(start) - start),
            figureText(sleep, "chargeBefore", "{:.4g}") + " to " + figureText(sleep, "chargeAfter", "{:.4g} %"),
            takenBy(sleep)});
    }
    return table.lines();
}

bool hasRows(const Value* list) { return list && list->is_array() && !list->empty(); }

const Value* historyOf(const Value& answer, std::string_view figure)
{
    const Value* history = find(answer, "history");
    const Value* rows = history ? find(*history, figure) : nullptr;
    return rows && rows->is_array() ? rows : nullptr;
}

struct BatteryCourse {
    Plot plot;
    const Value* rows;
};

std::vector<BatteryCourse> batteryCourses(const Value& answer, double now)
{
    std::vector<BatteryCourse> figures;
    if (const Value* health = historyOf(answer, "health")) {
        figures.push_back({batteryPlot(*health, "Health", "%", now), health});
        figures.back().plot.most = 100;
    }
    if (const Value* cycles = historyOf(answer, "cycles")) {
        figures.push_back({batteryPlot(*cycles, "Cycles", "", now), cycles});
    }
    return figures;
}

} // namespace

std::vector<Plot> batteryPlots(const Value& answer, double now)
{
    std::vector<Plot> plots;
    for (BatteryCourse& figure : batteryCourses(answer, now)) {
        plots.push_back(std::move(figure.plot));
    }
    return plots;
}

Lines batteryLines(const Value& answer, int columns)
{
    Lines lines;
    const Value* batteries = find(answer, "batteries");
    const Value* peripherals = find(answer, "peripherals");
    if (hasRows(batteries)) {
        if (const Value* total = find(answer, "total"); total && total->is_object()) {
            lines.push_back({{Style::Heading, "All batteries together"}});
            addCharge(lines, *total, stateOf(*total));
            addPower(lines, *total);
        }
        for (const Value& battery : *batteries) {
            addBattery(lines, battery, batteries->size() > 1);
        }
    } else {
        lines.push_back({{Style::Plain, "This machine has no battery."}});
    }
    if (hasRows(peripherals)) {
        addPeripherals(lines, *peripherals);
    }
    // A machine that has no battery and never had one stays with its one line.
    if (hasRows(batteries) || hasRows(historyOf(answer, "health")) || hasRows(historyOf(answer, "cycles"))) {
        for (const BatteryCourse& figure : batteryCourses(answer, number(answer, "wallTime").value_or(0))) {
            addRecorded(lines, figure.plot, *figure.rows, columns);
        }
    }
    if (const Value* sleeps = find(answer, "sleeps"); sleeps && sleeps->is_array()) {
        lines.push_back({});
        appendLines(
            lines, sleeps->empty() ? Lines{{{Style::Faint, "no sleep has been recorded"}}} : sleepLines(*sleeps));
    }
    return lines;
}

} // namespace meridal
