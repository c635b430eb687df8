#include "client/views/SensorsView.h"

#include "base/Text.h"
#include "client/screen/Format.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

constexpr int sensorColumns = 28;
constexpr int readingColumns = 12;
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

/// "  ALARM (low)", "  FAULT"; nothing while all is well.
std::string alarmWords(const Value& sensor)
{
    const auto alarm = text(sensor, "alarm");
    return !alarm ? "" : *alarm == "fault" ? "  FAULT" : "  ALARM (" + printable(*alarm) + ")";
}

/// A bar in eighths of a column.
std::string bar(double place)
{
    constexpr std::array<const char*, 8> eighths = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    const auto filled = static_cast<std::size_t>(std::lround(place * (rangeColumns - 2) * 8));
    std::string text;
    for (std::size_t full = 0; full < filled / 8; ++full) {
        text += "█";
    }
    text += eighths.at(filled % 8);
    return "▕" + fitLeft(text, rangeColumns - 2) + "▏";
}

Line heading(std::string_view first)
{
    return {{Style::Heading,
        fitLeft(first, sensorColumns) + fitRight("VALUE", readingColumns) + "  " + fitLeft("RANGE", rangeColumns)
            + fitRight("LOWEST", readingColumns) + fitRight("HIGHEST", readingColumns)}};
}

Line row(const Value& sensor, std::string_view indent)
{
    const auto place = placeInRange(sensor);
    const std::string name = std::string(indent) + word(sensor, "name");
    Line line{{Style::Plain, fitLeft(name, sensorColumns)},
        {styleOf(sensor), fitRight(reading(sensor, "value"), readingColumns)},
        {Style::Faint, "  " + (place ? bar(*place) : fitLeft("", rangeColumns))},
        {Style::Plain,
            fitRight(reading(sensor, "lowest"), readingColumns)
                + fitRight(reading(sensor, "highest"), readingColumns)}};
    if (std::string words = alarmWords(sensor); !words.empty()) {
        line.push_back({Style::High, std::move(words)});
    }
    return line;
}

} // namespace

std::string formatReading(const Value& figure, const std::string& unit)
{
    if (!figure.is_number() || !std::isfinite(figure.get<double>())) {
        return "-";
    }
    const double value = figure.get<double>();
    const int decimals = unit == "V" || unit == "A" ? 3 : unit == "rpm" ? 0 : unit.empty() ? 2 : 1;
    const std::string digits =
        std::abs(value) < 1e6 ? fmt::format("{:.{}f}", value, decimals) : fmt::format("{:.3g}", value);
    return unit.empty() ? digits : digits + " " + unit;
}

Lines sensorLines(const Value& sensors)
{
    if (!sensors.is_array() || sensors.empty()) {
        return {{{Style::Plain, "no sensors on this machine"}}};
    }
    Lines lines{heading("SENSOR")};
    std::optional<std::string> chip;
    for (const Value& sensor : sensors) {
        if (const std::string its = word(sensor, "chip"); its != chip) {
            lines.push_back({{Style::Title, its}});
            chip = its;
        }
        lines.push_back(row(sensor, "  "));
    }
    return lines;
}

Lines fanLines(const Value& sensors)
{
    const Value fans = fansOf(sensors);
    if (fans.empty()) {
        return {{{Style::Plain, "no fans on this machine"}}};
    }
    Lines lines{heading("FAN")};
    for (const Value& fan : fans) {
        lines.push_back(row(fan, ""));
    }
    return lines;
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
