// SPDX-License-Identifier: Apache-2.0
#include "client/views/SensorsView.h"

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/screen/TextTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr int rangeColumns = 14;
constexpr double nearlyHigh = 0.9; // of the way to a limit

std::string word(const Value& sensor, std::string_view key) { return printable(text(sensor, key).value_or("")); }

std::string reading(const Value& sensor, std::string_view key)
{
    const Value* figure = find(sensor, key);
    return formatReading(figure ? *figure : Value(), word(sensor, "unit"));
}

/// Where the value stands between the limits, 0 to 1; nothing without a value or without limits. In place of a limit
/// that is missing what has been seen must do, and 0 below.
std::optional<double> placeInRange(const Value& sensor)
{
    const auto value = number(sensor, "value");
    auto low = number(sensor, "low");
    auto high = number(sensor, "high");
    if (!value || (!low && !high)) {
        return std::nullopt;
    }
    low = low ? low : std::min(0.0, number(sensor, "lowest").value_or(0));
    high = high ? high : number(sensor, "highest");
    return high && *high > *low ? std::optional(std::clamp((*value - *low) / (*high - *low), 0.0, 1.0)) : std::nullopt;
}

bool isFan(const Value& sensor) { return text(sensor, "kind") == "fan"; }

bool isFixed(const Value& sensor)
{
    const Value* fixed = find(sensor, "fixed");
    return fixed && *fixed == true;
}

Style styleOf(const Value& sensor)
{
    if (text(sensor, "alarm")) {
        return Style::High;
    }
    if (!number(sensor, "value")) {
        return Style::Faint;
    }
    // A fan at its limit only does its best.
    const auto place =
        isFixed(sensor) && number(sensor, "high") && !isFan(sensor) ? placeInRange(sensor) : std::nullopt;
    return place && *place >= nearlyHigh ? Style::Medium : Style::Plain;
}

/// "LOW", "HIGH", "CRITICAL", "FAULT"; nothing while all is well.
std::string alarmWord(const Value& sensor) { return upperCase(word(sensor, "alarm")); }

std::string valueWords(const Value& sensor)
{
    const bool stands = isFan(sensor) && number(sensor, "value") == 0.0;
    return stands ? "stopped" : reading(sensor, "value");
}

/// "20 to 100, critical 110", "min 300": what somebody has set, in the unit of the value.
std::string limitWords(const Value& sensor)
{
    const bool turns = isFan(sensor);
    const auto low = isFixed(sensor) ? number(sensor, "low") : std::nullopt;
    const auto critical = number(sensor, "critical");
    auto high = isFixed(sensor) ? number(sensor, "high") : std::nullopt;
    high = high == critical ? std::nullopt : high; // which stands in where there is no other
    const auto figure = [](double limit) { return fmt::format("{:.6g}", limit); };
    std::vector<std::string> words;
    if (low && (!turns || *low > 0)) {
        words.push_back((turns ? "min " : high ? "" : "from ") + figure(*low));
    }
    if (high && low && !turns) {
        words.back() += " to " + figure(*high);
    } else if (high) {
        words.push_back((turns ? "max " : "to ") + figure(*high));
    }
    if (critical) {
        words.push_back("critical " + figure(*critical));
    }
    return fmt::format("{}", fmt::join(words, ", "));
}

std::string bar(double place)
{
    const auto filled = static_cast<int>(std::lround(place * (rangeColumns - 2) * 8));
    return "▕" + fitLeft(blocks(filled), rangeColumns - 2) + "▏";
}

/// As wide as what is in it; 0 where nothing is.
template <typename Words>
int columnsFor(const Value& sensors, Words wordsOf)
{
    int width = 0;
    for (const Value& sensor : sensors) {
        width = std::max(width, displayWidth(wordsOf(sensor)));
    }
    return width;
}

/// Where a value stands, or how it came there.
TableColumn placeColumn(const RecentCourses* courses)
{
    return {.title = courses ? courses->title() : "RANGE", .width = rangeColumns, .gap = 2, .leaves = courses ? 2 : 1};
}

std::string placeWords(const Value& sensor, const RecentCourses* courses)
{
    if (courses) {
        return courses->spark(text(sensor, "key").value_or(""), rangeColumns);
    }
    const auto place = placeInRange(sensor);
    return place ? bar(*place) : "";
}

/// By chip. What matters least goes first where there is little room: where the value stands, then what has been seen; how
/// it went stays longer than the lowest value.
Lines tableOf(const Value& sensors, const char* name, const char* value, int room, const RecentCourses* courses)
{
    const int alarms = columnsFor(sensors, alarmWord);
    const int limits = columnsFor(sensors, limitWords);
    std::vector<TableColumn> columns = {
        {.title = name, .width = 28, .gap = 1, .least = 12}, {value, 10, Align::Right, 2}};
    if (alarms > 0) {
        columns.push_back({"STATE", std::max(alarms, 5), Align::Left, 2});
    }
    columns.push_back(placeColumn(courses));
    if (limits > 0) {
        columns.push_back({.title = "LIMITS", .width = std::max(limits, 6), .gap = 1, .leaves = 4});
    }
    columns.push_back({.title = "LOWEST", .width = 10, .align = Align::Right, .gap = 1, .leaves = courses ? 1 : 2});
    columns.push_back({.title = "HIGHEST", .width = 10, .align = Align::Right, .leaves = 3});
    TextTable table(std::move(columns), room);
    std::string chip;
    for (const Value& sensor : sensors) {
        if (std::string its = word(sensor, "chip"); its != chip) {
            chip = std::move(its);
            table.addLine({{Style::Title, chip}});
        }
        std::vector<TableCell> cells = {
            (chip.empty() ? "" : "  ") + word(sensor, "name"), {styleOf(sensor), valueWords(sensor)}};
        if (alarms > 0) {
            cells.emplace_back(Style::High, alarmWord(sensor));
        }
        cells.emplace_back(Style::Faint, placeWords(sensor, courses));
        if (limits > 0) {
            cells.emplace_back(Style::Faint, limitWords(sensor));
        }
        cells.emplace_back(reading(sensor, "lowest"));
        cells.emplace_back(reading(sensor, "highest"));
        table.add(std::move(cells));
    }
    return table.lines();
}

Value chosen(const Value& sensors, bool fans)
{
    Value list = Value::array();
    for (const Value& sensor : sensors.is_array() ? sensors : Value::array()) {
        if (isFan(sensor) == fans) {
            list.push_back(sensor);
        }
    }
    return list;
}

Lines fanTable(const Value& fans, int room, const RecentCourses* courses = nullptr)
{
    return tableOf(fans, "FAN", "SPEED", room, courses);
}

} // namespace

std::string formatReading(const Value& figure, const std::string& unit)
{
    if (!figure.is_number() || !std::isfinite(figure.get<double>())) {
        return "-";
    }
    const double value = figure.get<double>();
    if (unit == "B" || unit == "B/s") {
        return unit == "B" ? formatBytes(value) : formatByteRate(value);
    }
    const int decimals = unit == "V" || unit == "A" ? 3 : unit == "rpm" ? 0 : unit.empty() ? 2 : 1;
    const std::string digits =
        std::abs(value) < 1e6 ? fmt::format("{:.{}f}", value, decimals) : fmt::format("{:.3g}", value);
    return unit.empty() ? digits : unit == "1/s" ? digits + "/s" : digits + " " + unit;
}

Lines sensorLines(const Value& sensors, int room, const RecentCourses* courses)
{
    if (!sensors.is_array() || sensors.empty()) {
        return {{{Style::Plain, "no sensors on this machine"}}};
    }
    const Value fans = chosen(sensors, true);
    const Value others = chosen(sensors, false);
    Lines lines = others.empty() ? Lines() : tableOf(others, "SENSOR", "VALUE", room, courses);
    if (!others.empty() && !fans.empty()) {
        lines.emplace_back();
    }
    appendLines(lines, fans.empty() ? Lines() : fanTable(fans, room, courses));
    return lines;
}

Lines fanLines(const Value& sensors, int room)
{
    const Value fans = fansOf(sensors);
    return fans.empty() ? Lines{{{Style::Plain, "no fans on this machine"}}} : fanTable(fans, room);
}

Value fansOf(const Value& sensors) { return chosen(sensors, true); }

} // namespace meridal
