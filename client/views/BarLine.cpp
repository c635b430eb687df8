// SPDX-License-Identifier: Apache-2.0
#include "client/views/BarLine.h"

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/views/SensorsView.h"
#include "wire/BatteryCodes.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace meridal {

namespace {

enum class Trouble : std::uint8_t { None, Warning, Critical };

/// What stands in the place of a figure.
struct BarWord {
    std::string text = "-"; ///< printable
    Trouble trouble = Trouble::None;
};

const Value& listOfBar(const Value& answer, std::string_view key)
{
    static const Value none = Value::array();
    const Value* list = find(answer, key);
    return list && list->is_array() ? *list : none;
}

std::optional<double> machineFigure(const BarFigures& figures, std::string_view group, std::string_view key)
{
    const Value* found = find(figures.machine, group);
    return found ? number(*found, key) : std::nullopt;
}

BarWord percentWord(std::optional<double> percent)
{
    return percent ? BarWord{fmt::format("{:.0f}%", *percent)} : BarWord();
}

// One function a figure; `name` is empty where none was given.

BarWord cpuWord(const BarFigures& figures, const std::string&)
{
    return percentWord(machineFigure(figures, "cpu", "busy"));
}

BarWord memoryWord(const BarFigures& figures, const std::string&)
{
    const auto used = machineFigure(figures, "memory", "used");
    const auto total = machineFigure(figures, "memory", "total");
    return percentWord(used && total && *total > 0 ? std::optional(*used / *total * 100) : std::nullopt);
}

BarWord swapWord(const BarFigures& figures, const std::string&)
{
    const auto used = machineFigure(figures, "memory", "swapused");
    return used ? BarWord{formatBytes(*used)} : BarWord();
}

BarWord loadWord(const BarFigures& figures, const std::string&)
{
    const auto load = machineFigure(figures, "cpu", "load1");
    return load ? BarWord{fmt::format("{:.2f}", *load)} : BarWord();
}

BarWord gpuWord(const BarFigures& figures, const std::string& name)
{
    std::optional<double> busiest;
    for (const Value& gpu : listOfBar(figures.machine, "gpus")) {
        if (name.empty() || text(gpu, "name") == name) {
            busiest = std::max(busiest, number(gpu, "busy"));
        }
    }
    return percentWord(busiest);
}

/// Of the one that the default route goes by.
BarWord netWord(const BarFigures& figures, const std::string& name)
{
    for (const Value& interface : listOfBar(figures.interfaces, "interfaces")) {
        const Value* primary = find(interface, "primary");
        if (name.empty() ? primary && *primary == true : text(interface, "interface") == name) {
            const auto rate = [&](std::string_view key) {
                const auto figure = number(interface, key);
                return figure ? formatByteRate(*figure) : std::string("-");
            };
            return {fmt::format("↓{} ↑{}", rate("downloadRate"), rate("uploadRate"))};
        }
    }
    return {};
}

BarWord diskWord(const BarFigures& figures, const std::string& name)
{
    std::optional<double> sum;
    for (const Value& disk : listOfBar(figures.machine, "disks")) {
        if (name.empty() || text(disk, "name") == name) {
            for (const char* key : {"readbytes", "writtenbytes"}) {
                const auto rate = number(disk, key);
                sum = rate ? std::optional(sum.value_or(0) + *rate) : sum;
            }
        }
    }
    return sum ? BarWord{formatByteRate(*sum)} : BarWord();
}

/// The one that is called so, in all or in part, also "chip/name"; without a name the one that shows the most.
const Value* sensorNamed(const BarFigures& figures, std::string_view kind, const std::string& name)
{
    const std::string wanted = lowercase(name);
    const Value* found = nullptr;
    int best = 0; // 1: has it in its name, 2: is called so
    for (const Value& sensor : listOfBar(figures.sensors, "sensors")) {
        if (!kind.empty() && text(sensor, "kind") != kind) {
            continue;
        }
        const std::string its = lowercase(text(sensor, "name").value_or(""));
        const std::string full = lowercase(text(sensor, "chip").value_or("")) + "/" + its;
        const int fit = its == wanted || text(sensor, "key") == name ? 2
            : full.find(wanted) != std::string::npos                 ? 1
                                                                     : 0;
        const bool isMore = found && number(sensor, "value") > number(*found, "value");
        if (fit > best || (name.empty() && fit == best && isMore)) {
            found = &sensor;
            best = fit;
        }
    }
    return found;
}

BarWord wordOfSensor(const Value* sensor, std::string words)
{
    if (!sensor) {
        return {};
    }
    const auto alarm = text(*sensor, "alarm");
    const Trouble trouble = !alarm ? Trouble::None : *alarm == "critical" ? Trouble::Critical : Trouble::Warning;
    return {alarm == "fault" ? "FAULT" : std::move(words), trouble};
}

BarWord temperatureWord(const BarFigures& figures, const std::string& name)
{
    const Value* sensor = sensorNamed(figures, "temperature", name);
    const auto value = sensor ? number(*sensor, "value") : std::nullopt;
    return wordOfSensor(sensor, value ? fmt::format("{:.0f}°C", *value) : "-");
}

std::string readingOfBar(const Value* sensor)
{
    const Value* value = sensor ? find(*sensor, "value") : nullptr;
    return value ? formatReading(*value, printable(text(*sensor, "unit").value_or(""))) : "-";
}

BarWord fanWord(const BarFigures& figures, const std::string& name)
{
    const Value* fan = sensorNamed(figures, "fan", name);
    return wordOfSensor(fan, readingOfBar(fan));
}

BarWord sensorWord(const BarFigures& figures, const std::string& name)
{
    const Value* sensor = sensorNamed(figures, "", name);
    return wordOfSensor(sensor, readingOfBar(sensor));
}

/// Of all batteries of the machine together, or of the one that speaks for it.
const Value* batteryOf(const BarFigures& figures, const std::string& name)
{
    const Value* total = find(figures.battery, "total");
    if (name.empty() && total && total->is_object()) {
        return total;
    }
    const std::string primary = text(figures.battery, "primary").value_or("");
    for (const char* list : {"batteries", "peripherals"}) {
        for (const Value& battery : listOfBar(figures.battery, list)) {
            const auto key = text(battery, "key");
            if (name.empty() ? key == primary : key == name || text(battery, "name") == name) {
                return &battery;
            }
        }
    }
    return nullptr;
}

BarWord batteryWord(const BarFigures& figures, const std::string& name)
{
    constexpr double low = 20;
    constexpr double critical = 10; // %
    const Value* battery = batteryOf(figures, name);
    const auto percent = battery ? number(*battery, "percentage") : std::nullopt;
    if (!percent) {
        return {};
    }
    const auto state = static_cast<BatteryState>(integer(*battery, "state").value_or(-1));
    const bool isDrained = state == BatteryState::Draining;
    const auto minutes = number(*battery, "time");
    BarWord word = percentWord(percent);
    word.text += isDrained ? " ↓" : state == BatteryState::Charging ? " ↑" : "";
    if (minutes && *minutes >= 0 && (isDrained || state == BatteryState::Charging)) {
        const auto whole = static_cast<int>(std::min(*minutes, 1e6));
        word.text += fmt::format("{}:{:02}", whole / 60, whole % 60);
    }
    word.trouble = !isDrained || *percent > low ? Trouble::None
        : *percent > critical                   ? Trouble::Warning
                                                : Trouble::Critical;
    return word;
}

struct BarFigure {
    std::string_view name;
    BarQuestion question;
    BarWord (*word)(const BarFigures& figures, const std::string& name);
};

constexpr std::array<BarFigure, 11> barFigures = {{
    {"cpu", BarQuestion::Machine, cpuWord},
    {"memory", BarQuestion::Machine, memoryWord},
    {"swap", BarQuestion::Machine, swapWord},
    {"load", BarQuestion::Machine, loadWord},
    {"gpu", BarQuestion::Machine, gpuWord},
    {"disk", BarQuestion::Machine, diskWord},
    {"net", BarQuestion::Interfaces, netWord},
    {"temp", BarQuestion::Sensors, temperatureWord},
    {"fan", BarQuestion::Sensors, fanWord},
    {"sensor", BarQuestion::Sensors, sensorWord},
    {"battery", BarQuestion::Battery, batteryWord},
}};

const BarFigure* figureCalled(std::string_view name)
{
    const auto* const found =
        std::find_if(barFigures.begin(), barFigures.end(), [name](const BarFigure& each) { return each.name == name; });
    return found == barFigures.end() ? nullptr : found;
}

std::string complaintAboutFigure(std::string_view name)
{
    std::string all;
    for (const BarFigure& each : barFigures) {
        all += fmt::format("{}{{{}}}", all.empty() ? "" : ", ", each.name);
    }
    return fmt::format("there is no {{{}}} for a bar; there is {}", name, all);
}

std::string replaced(std::string text, std::string_view what, std::string_view with)
{
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
        text.replace(at, what.size(), with);
    }
    return text;
}

std::string escapedFor(BarFormat format, std::string text)
{
    switch (format) {
    case BarFormat::Waybar:
        text = replaced(std::move(text), "&", "&amp;");
        text = replaced(std::move(text), "<", "&lt;");
        return replaced(std::move(text), ">", "&gt;");
    case BarFormat::Polybar:
        return replaced(std::move(text), "%{", "%\u200B{"); // it has no escape: something without a width between them
    case BarFormat::Tmux:
        return replaced(std::move(text), "#", "##");
    default:
        return text;
    }
}

std::string marked(BarFormat format, const BarWord& word)
{
    const std::string text = escapedFor(format, word.text);
    if (word.trouble == Trouble::None) {
        return text;
    }
    const bool isCritical = word.trouble == Trouble::Critical;
    if (format == BarFormat::Polybar) {
        return fmt::format("%{{F{}}}{}%{{F-}}", isCritical ? "#e53935" : "#fb8c00", text);
    }
    if (format == BarFormat::Tmux) {
        return fmt::format("#[fg={}]{}#[fg=default]", isCritical ? "red" : "yellow", text);
    }
    return text;
}

} // namespace

Result<BarTemplate> BarTemplate::parse(std::string_view text)
{
    BarTemplate result;
    result.parts.emplace_back();
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char each = text[at];
        const bool isTwice = at + 1 < text.size() && text[at + 1] == each;
        if (each != '{' || isTwice) {
            result.parts.back().text += each;
            at += (each == '{' || each == '}') && isTwice ? 1 : 0;
            continue;
        }
        const std::size_t end = text.find('}', at);
        if (end == std::string_view::npos) {
            return unexpected(ErrorCode::InvalidArgument, "a \"{\" has no \"}\"; \"{{\" is a brace");
        }
        const std::string_view inside = text.substr(at + 1, end - at - 1);
        const std::size_t colon = std::min(inside.find(':'), inside.size());
        result.parts.back().figure = inside.substr(0, colon);
        result.parts.back().name = inside.substr(std::min(colon + 1, inside.size()));
        if (!figureCalled(result.parts.back().figure)) {
            return unexpected(ErrorCode::InvalidArgument, complaintAboutFigure(inside.substr(0, colon)));
        }
        result.parts.emplace_back();
        at = end;
    }
    return result;
}

bool BarTemplate::asks(BarQuestion question) const
{
    return std::any_of(parts.begin(), parts.end(), [question](const Part& part) {
        const BarFigure* figure = figureCalled(part.figure);
        return figure && figure->question == question;
    });
}

std::string_view barHeader(BarFormat format) { return format == BarFormat::I3bar ? "{\"version\":1}\n[\n" : ""; }

std::string barLine(BarFormat format, const BarTemplate& layout, const BarFigures& figures)
{
    std::string line;
    Trouble worst = Trouble::None;
    for (const BarTemplate::Part& part : layout.parts) {
        line += escapedFor(format, printable(part.text));
        if (const BarFigure* figure = figureCalled(part.figure)) {
            const BarWord word = figures.isOffline ? BarWord() : figure->word(figures, part.name);
            worst = std::max(worst, word.trouble);
            line += marked(format, word);
        }
    }
    constexpr std::array<const char*, 3> names = {"normal", "warning", "critical"};
    const char* state = figures.isOffline ? "offline" : names.at(static_cast<std::size_t>(worst));
    if (format == BarFormat::Waybar) {
        return jsonLine({{"text", line}, {"class", state}});
    }
    if (format == BarFormat::I3bar) {
        Value block = {{"name", "meridal"}, {"full_text", line}, {"markup", "none"}};
        if (worst == Trouble::Critical) {
            block["urgent"] = true;
        }
        return terminalJson(Value::array({block})) + ",\n";
    }
    return line + '\n';
}

} // namespace meridal
