// SPDX-License-Identifier: Apache-2.0
#include "client/views/OverviewView.h"

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/screen/TextTable.h"
#include "client/views/SensorsView.h"
#include "wire/BatteryCodes.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

constexpr int overviewLabel = 9; // columns
constexpr int wideOverview = 70; // columns from which on there is room for details
constexpr double busyShare = 80; // %
constexpr double fullShare = 95;

/// A subject's lines, and how much it is missed.
struct OverviewPart {
    int rank = 0; ///< the lowest is left out first
    Lines lines;
};

/// How much room there is for lists.
struct OverviewRoom {
    int columns = 80;
    std::size_t most = 2; ///< rows of each list
    bool isWide() const { return columns >= wideOverview; }
};

Span labelSpan(std::string_view label) { return {Style::Title, fitLeft(label, overviewLabel)}; }

Style styleOfShare(double percent)
{
    return percent >= fullShare ? Style::High : percent >= busyShare ? Style::Medium : Style::Plain;
}

/// The array under a key; an empty one where there is none.
const Value& arrayIn(const Value& from, std::string_view key)
{
    static const Value none = Value::array();
    const Value* found = find(from, key);
    return found && found->is_array() ? *found : none;
}

/// "[████▌     ]  45.1 %"
void addShare(Line& line, double percent, int columns)
{
    const double part = std::clamp(percent / 100, 0.0, 1.0);
    const std::string bar = blocks(static_cast<int>(std::lround(part * columns * 8)));
    line.push_back({Style::Faint, "["});
    line.push_back({styleOfShare(percent), fitLeft(bar, columns)});
    line.push_back({Style::Faint, "]"});
    line.push_back({styleOfShare(percent), fmt::format("{:5.1f} %", percent)});
}

int barColumnsIn(const OverviewRoom& room) { return std::clamp(room.columns / 6, 8, 40); }

const Value& partOf(const Value& from, std::string_view key)
{
    static const Value none;
    const Value* found = find(from, key);
    return found ? *found : none;
}

Line processorShare(const Value& cpu, const OverviewRoom& room)
{
    Line line = {labelSpan("CPU")};
    addShare(line, number(cpu, "busy").value_or(0), barColumnsIn(room));
    std::string words;
    const auto add = [&](const char* name, std::optional<double> percent) {
        words += percent && room.isWide() ? fmt::format("  {} {:.0f}", name, *percent) : "";
    };
    const auto user = number(cpu, "user");
    add("user", user ? std::optional(*user + number(cpu, "nice").value_or(0)) : user);
    add("system", number(cpu, "system"));
    add("wait", number(cpu, "iowait"));
    const char* before = "  load ";
    for (const char* key : {"load1", "load5", "load15"}) {
        const auto load = number(cpu, key);
        if (load && (room.isWide() || key == std::string_view("load1"))) {
            words += fmt::format("{}{:.{}f}", std::exchange(before, " "), *load, *load < 10 ? 2 : 1);
        }
    }
    line.push_back({Style::Plain, words});
    return line;
}

/// Each processor with a bar, or where there are too many for that with one block.
Lines coreShares(const Value& cpu, const OverviewRoom& room)
{
    static constexpr std::array<const char*, 8> heights = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    constexpr int cell = 17;
    constexpr int bar = 5;
    const Value& cores = arrayIn(cpu, "processors");
    const std::size_t count = cores.size();
    const auto inLine = static_cast<std::size_t>(std::max((room.columns - overviewLabel) / cell, 1));
    const bool isLarge = count > inLine * room.most;
    const auto each = isLarge ? static_cast<std::size_t>(std::max(room.columns - overviewLabel, 1)) : inLine;
    Lines lines;
    for (std::size_t index = 0; index < count; ++index) {
        if (index % each == 0) {
            lines.push_back({labelSpan("")});
        }
        const double busy = std::clamp(number(cores[index], "busy").value_or(0), 0.0, 100.0);
        if (isLarge) {
            lines.back().push_back(
                {styleOfShare(busy), heights.at(static_cast<std::size_t>(std::lround(busy / 100 * 7)))});
            continue;
        }
        lines.back().push_back({Style::Faint, fmt::format("{:>3}", integer(cores[index], "number").value_or(0))});
        lines.back().push_back({styleOfShare(busy),
            fitLeft(" " + blocks(static_cast<int>(std::lround(busy / 100 * bar * 8))), bar + 1)
                + fmt::format(" {:3.0f} %  ", busy)});
    }
    return lines;
}

Lines memoryShares(const Value& memory, const OverviewRoom& room)
{
    const auto used = number(memory, "used");
    const auto total = number(memory, "total");
    Lines lines;
    if (used && total && *total > 0) {
        Line line = {labelSpan("Memory")};
        addShare(line, *used / *total * 100, barColumnsIn(room));
        const std::string free =
            room.isWide() ? fmt::format(", {} available", formatBytes(number(memory, "available").value_or(0))) : "";
        line.push_back({Style::Plain, fmt::format("  {} of {}{}", formatBytes(*used), formatBytes(*total), free)});
        lines.push_back(std::move(line));
    }
    const auto swapped = number(memory, "swapused");
    const auto swap = number(memory, "swaptotal");
    if (swapped && swap && *swap > 0) {
        Line line = {labelSpan("Swap")};
        addShare(line, *swapped / *swap * 100, barColumnsIn(room));
        line.push_back({Style::Plain, fmt::format("  {} of {}", formatBytes(*swapped), formatBytes(*swap))});
        lines.push_back(std::move(line));
    }
    return lines;
}

Lines pressureGlance(const Value& pressure)
{
    Line line = {labelSpan("Waiting")};
    for (const auto& [name, key] : {std::pair{"for CPU", "cpusome"}, {"memory", "memorysome"}, {"disks", "iosome"}}) {
        if (const auto percent = number(pressure, key)) {
            line.push_back({styleOfShare(*percent), fmt::format("{} {:.1f} %   ", name, *percent)});
        }
    }
    return line.size() > 1 ? Lines{line} : Lines{};
}

/// Two rates of each of the largest.
struct NamedRates {
    std::string name;
    double first = 0;
    double second = 0;
    std::string more = {};
};

Lines namedRateLines(std::string_view label, std::vector<NamedRates> all,
    const std::pair<const char*, const char*>& words, const OverviewRoom& room)
{
    constexpr int rateColumns = 11;
    std::stable_sort(all.begin(), all.end(), [](const NamedRates& one, const NamedRates& other) {
        return one.first + one.second > other.first + other.second;
    });
    all.resize(std::min(all.size(), room.most));
    Lines lines;
    for (const NamedRates& each : all) {
        Line line = {labelSpan(lines.empty() ? label : "")};
        line.push_back({Style::Plain, fitLeft(each.name, room.isWide() ? 14 : 7) + " "});
        const auto add = [&](const char* word, double rate) {
            const std::string text = formatByteRate(rate);
            line.push_back({Style::Faint, std::string(room.isWide() ? word : std::string(word, 1)) + " "});
            line.push_back({Style::Plain, fitLeft(text, rateColumns)});
        };
        add(words.first, each.first);
        add(words.second, each.second);
        line.push_back({Style::Plain, room.isWide() ? each.more : ""});
        lines.push_back(std::move(line));
    }
    return lines;
}

Lines diskRates(const Value& machine, const OverviewRoom& room)
{
    std::vector<NamedRates> all;
    for (const Value& disk : arrayIn(machine, "disks")) {
        const auto busy = number(disk, "busy");
        all.push_back({.name = printable(text(disk, "name").value_or("?")),
            .first = number(disk, "readbytes").value_or(0),
            .second = number(disk, "writtenbytes").value_or(0),
            .more = busy ? fmt::format("{:.1f} % busy", *busy) : ""});
    }
    return namedRateLines("Disks", std::move(all), {"read", "written"}, room);
}

/// Interfaces that carry something; where none does the first that is not the machine's own.
Lines networkRates(const Value& network, const OverviewRoom& room)
{
    std::vector<NamedRates> all;
    for (const auto& [name, rates] :
        network.is_object() ? network.get_ref<const Value::object_t&>() : Value::object_t()) {
        const NamedRates each{.name = printable(name),
            .first = number(rates, "received").value_or(0),
            .second = number(rates, "sent").value_or(0)};
        if (each.first + each.second > 0 || (all.empty() && name != "lo" && name != "lo0")) {
            all.push_back(each);
        }
    }
    return namedRateLines("Network", std::move(all), {"down", "up"}, room);
}

Lines spaceLines(const Value& machine, const OverviewRoom& room)
{
    const Value* fullest = nullptr;
    double most = -1;
    for (const Value& each : arrayIn(machine, "fileSystems")) {
        const auto used = number(each, "used");
        const auto available = number(each, "available");
        const bool isKnown = used && available && *used + *available > 0;
        const double share = isKnown ? *used / (*used + *available) * 100 : -1;
        fullest = share > most ? &each : fullest;
        most = std::max(most, share);
    }
    if (!fullest) {
        return {};
    }
    Line line = {labelSpan("Fullest")};
    addShare(line, most, barColumnsIn(room));
    line.push_back({Style::Plain,
        fmt::format("  {}, {} left", printable(text(*fullest, "mount").value_or("?")),
            formatBytes(number(*fullest, "available").value_or(0)))});
    return {line};
}

/// What has an alarm, then the hottest.
Lines sensorGlance(const Value& answer, const OverviewRoom& room)
{
    std::vector<const Value*> shown;
    for (const Value& each : arrayIn(answer, "sensors")) {
        if (number(each, "value") && (text(each, "kind") == "temperature" || text(each, "alarm"))) {
            shown.push_back(&each);
        }
    }
    std::stable_sort(shown.begin(), shown.end(), [](const Value* one, const Value* other) {
        const auto rank = [](const Value& each) {
            return std::pair(text(each, "alarm").has_value(), number(each, "value"));
        };
        return rank(*one) > rank(*other);
    });
    Line line = {labelSpan("Sensors")};
    int left = room.columns - overviewLabel;
    for (const Value* each : shown) {
        const auto alarm = text(*each, "alarm");
        const std::string words = printable(text(*each, "name").value_or("?")) + " "
            + formatReading((*each)["value"], printable(text(*each, "unit").value_or("")))
            + (alarm ? " " + upperCase(printable(*alarm)) : "");
        left -= displayWidth(words) + 3;
        if (left < -3 && line.size() > 1) {
            break;
        }
        line.push_back({alarm ? Style::High : Style::Plain, words});
        line.push_back({Style::Plain, "   "});
    }
    return line.size() > 1 ? Lines{line} : Lines{};
}

Lines batteryGlance(const Value& answer)
{
    constexpr double low = 20; // %
    const Value& batteries = arrayIn(answer, "batteries");
    const Value* total = find(answer, "total");
    if (batteries.empty()) {
        return {};
    }
    const Value& battery = total && total->is_object() ? *total : batteries.front();
    const auto percent = number(battery, "percentage");
    if (!percent) {
        return {};
    }
    const auto state = static_cast<BatteryState>(integer(battery, "state").value_or(-1));
    const bool isDraining = state == BatteryState::Draining;
    const auto minutes = number(battery, "time");
    std::string words = fmt::format("{:.0f} %{}", *percent,
        isDraining                            ? ", on battery"
            : state == BatteryState::Charging ? ", charging"
            : integer(battery, "state")       ? ", on AC power"
                                              : "");
    if (minutes && *minutes >= 0 && (isDraining || state == BatteryState::Charging)) {
        words += ", " + formatSpan(*minutes * 60) + (isDraining ? " left" : " to full");
    }
    return {{labelSpan("Battery"), {isDraining && *percent <= low ? Style::Warning : Style::Plain, words}}};
}

int heightOf(const std::vector<OverviewPart>& parts)
{
    std::size_t height = 0;
    for (const OverviewPart& part : parts) {
        height += part.lines.size();
    }
    return static_cast<int>(height);
}

void dropLeast(std::vector<OverviewPart>& parts, int rows)
{
    while (heightOf(parts) > rows && parts.size() > 1) {
        parts.erase(std::min_element(parts.begin(), parts.end(),
            [](const OverviewPart& one, const OverviewPart& other) { return one.rank < other.rank; }));
    }
}

std::vector<OverviewPart> machineParts(const OverviewFigures& figures, const OverviewRoom& room)
{
    const Value& machine = figures.machine;
    const Value& cpu = partOf(machine, "cpu");
    std::vector<OverviewPart> parts;
    const auto add = [&](int rank, Lines lines) {
        if (!lines.empty()) {
            parts.push_back({rank, std::move(lines)});
        }
    };
    add(10, cpu.is_object() ? Lines{processorShare(cpu, room)} : Lines{});
    add(3, coreShares(cpu, room));
    add(9, memoryShares(partOf(machine, "memory"), room));
    add(2, pressureGlance(partOf(machine, "pressure")));
    add(6, diskRates(machine, room));
    add(1, spaceLines(machine, room));
    add(7, networkRates(partOf(machine, "network"), room));
    add(5, sensorGlance(figures.sensors, room));
    add(4, batteryGlance(figures.battery));
    return parts;
}

} // namespace

Lines overviewLines(const OverviewFigures& figures, int rows, int columns)
{
    constexpr int usualRows = 21; // of a terminal of 24
    constexpr int rowsForMore = 6;
    const bool isLow = rows < usualRows - rowsForMore;
    const auto more = static_cast<std::size_t>(std::max(rows - usualRows, 0) / rowsForMore);
    auto parts = machineParts(figures, {.columns = columns, .most = isLow ? 1 : 2 + more});
    if (parts.empty()) {
        return {};
    }
    const auto applications = figures.applications.empty()
        ? Lines()
        : applicationRateLines(figures.applications, ApplicationFigure::Cpu, columns);
    const int forApplications = std::min(static_cast<int>(applications.size()), isLow ? 3 : 1 + rows / 3);
    dropLeast(parts, rows - forApplications);
    Lines lines;
    for (const OverviewPart& part : parts) {
        appendLines(lines, part.lines);
    }
    if (static_cast<int>(lines.size() + applications.size()) < rows || !isLow) {
        lines.emplace_back();
    }
    appendLines(lines, applications);
    lines.resize(std::min(lines.size(), static_cast<std::size_t>(std::max(rows, 1))));
    return lines;
}

} // namespace meridal
