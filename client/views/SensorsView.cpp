// SPDX-License-Identifier: Apache-2.0
#include "client/views/SensorsView.h"

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/screen/TextTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <string_view>
#include <utility>

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
    const bool isFan = text(sensor, "kind") == "fan"; // at its limit it only does its best
    const auto place = isFixed(sensor) && number(sensor, "high") && !isFan ? placeInRange(sensor) : std::nullopt;
    return place && *place >= nearlyHigh ? Style::Medium : Style::Plain;
}

/// "ALARM (low)", "FAULT"; nothing while all is well.
std::string alarmWords(const Value& sensor)
{
    const auto alarm = text(sensor, "alarm");
    return !alarm ? "" : *alarm == "fault" ? "FAULT" : "ALARM (" + printable(*alarm) + ")";
}

std::string bar(double place)
{
    const auto filled = static_cast<int>(std::lround(place * (rangeColumns - 2) * 8));
    return "▕" + fitLeft(blocks(filled), rangeColumns - 2) + "▏";
}

TextTable tableOf(std::string first, int room)
{
    return TextTable({{.title = std::move(first), .width = 28, .least = 12}, {"VALUE", 12, Align::Right, 2},
                         {"RANGE", rangeColumns}, {"LOWEST", 12, Align::Right}, {"HIGHEST", 12, Align::Right, 2}, {}},
        room);
}

void addRow(TextTable& table, const Value& sensor, const std::string& indent)
{
    const auto place = placeInRange(sensor);
    table.add({indent + word(sensor, "name"), {styleOf(sensor), reading(sensor, "value")},
        {Style::Faint, place ? bar(*place) : ""}, reading(sensor, "lowest"), reading(sensor, "highest"),
        {Style::High, alarmWords(sensor)}});
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

Lines sensorLines(const Value& sensors, int room)
{
    if (!sensors.is_array() || sensors.empty()) {
        return {{{Style::Plain, "no sensors on this machine"}}};
    }
    TextTable table = tableOf("SENSOR", room);
    std::optional<std::string> chip;
    for (const Value& sensor : sensors) {
        if (const std::string its = word(sensor, "chip"); its != chip) {
            table.addLine({{Style::Title, its}});
            chip = its;
        }
        addRow(table, sensor, "  ");
    }
    return table.lines();
}

Lines fanLines(const Value& sensors, int room)
{
    const Value fans = fansOf(sensors);
    if (fans.empty()) {
        return {{{Style::Plain, "no fans on this machine"}}};
    }
    TextTable table = tableOf("FAN", room);
    for (const Value& fan : fans) {
        addRow(table, fan, "");
    }
    return table.lines();
}

Value fansOf(const Value& sensors)
{
    Value fans = Value::array();
    for (const Value& sensor : sensors.is_array() ? sensors : Value::array()) {
        if (text(sensor, "kind") == "fan") {
            fans.push_back(sensor);
        }
    }
    return fans;
}

} // namespace meridal
