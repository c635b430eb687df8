// SPDX-License-Identifier: Apache-2.0
#include "client/views/DisksView.h"

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/screen/TextTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

namespace meridal {

namespace {

std::string shown(const Value& disk, std::string_view key) { return printable(text(disk, key).value_or("-")); }

std::string figure(const Value& disk, std::string_view key, std::string_view unit)
{
    const auto value = number(disk, key);
    return value ? fixed0(*value) + std::string(unit) : "-";
}

std::string kindOf(const Value& disk)
{
    const std::string kind = shown(disk, "kind");
    if (kind == "nvme") {
        return "NVMe";
    }
    const Value* spins = find(disk, "spins");
    return spins && spins->is_boolean() ? (*spins == true ? "HDD" : "SSD") : kind == "ata" ? "ATA" : kind;
}

const Value& listOf(const Value& disk, std::string_view key)
{
    static const Value none = Value::array();
    const Value* list = find(disk, key);
    return list && list->is_array() ? *list : none;
}

/// What there is to say of a disk, and why, where that takes a line of its own.
struct DiskVerdict {
    Span word;
    std::string why = {};
};

/// The worst first.
DiskVerdict diskVerdict(const Value& disk)
{
    const Value* healthy = find(disk, "healthy");
    if (healthy && *healthy == false) {
        return {{Style::High, "FAILING"}};
    }
    const std::string state = shown(disk, "state");
    if (state == "hanging") {
        return {{Style::Warning, "does not answer"}, "its figures are old"};
    }
    if (!listOf(disk, "problems").empty()) {
        return {{Style::Warning, "has problems"}};
    }
    if (state == "asleep") {
        return {{Style::Faint, "asleep"}};
    }
    if (state == "hidden") {
        return {
            {Style::Faint, "not read"}, "its adapter does not tell whether it sleeps (meridald --read-hidden-disks)"};
    }
    if (state == "off") {
        return {{Style::Faint, "SMART is off"}, "smartctl --smart=on /dev/" + shown(disk, "bsd") + " switches it on"};
    }
    if (state == "denied") {
        return {{Style::Faint, "not read"}, "the daemon has no right to"};
    }
    if (state == "silent") {
        return {{Style::Faint, "no answer"}, "what it answers makes no sense"};
    }
    if (state == "unread") {
        return {{Style::Faint, "not read yet"}};
    }
    return {healthy && *healthy == true ? Span{Style::Plain, "fine"} : Span{Style::Faint, "does not say"}};
}

/// A failing attribute is as bad as a failing disk, whatever the disk thinks of itself. The words begin with its name.
Style styleOfProblem(const Value& disk, std::string_view words)
{
    const Value* healthy = find(disk, "healthy");
    const Value& attributes = listOf(disk, "attributes");
    const bool fails = std::any_of(attributes.begin(), attributes.end(), [words](const Value& attribute) {
        return text(attribute, "status") == "failing" && words.starts_with(text(attribute, "name").value_or("") + ' ');
    });
    return fails || (healthy && *healthy == false) ? Style::High : Style::Warning;
}

void addLines(TextTable& table, const Lines& lines)
{
    for (const Line& line : lines) {
        table.addLine(line);
    }
}

void addDisk(TextTable& table, const Value& disk, int room)
{
    constexpr int indent = 2;
    const auto seconds = number(disk, "powerOn");
    const DiskVerdict said = diskVerdict(disk);
    table.add({{Style::Title, shown(disk, "bsd")}, shown(disk, "model"), shown(disk, "serial"), kindOf(disk),
        figure(disk, "temperature", " °C"), figure(disk, "wear", " %"), seconds ? formatDuration(*seconds) : "-",
        Line{said.word}});
    if (!said.why.empty()) {
        addLines(table, wrappedLines(Style::Faint, said.why, indent, room));
    }
    for (const Value& problem : listOf(disk, "problems")) {
        if (problem.is_string()) {
            const auto& words = problem.get_ref<const std::string&>();
            addLines(table, wrappedLines(styleOfProblem(disk, words), printable(words), indent, room));
        }
    }
}

std::string valueOf(const Value& attribute)
{
    const Value* value = find(attribute, "value");
    if (!value || value->is_null()) {
        return "-";
    }
    return printable(value->is_string() ? value->get_ref<const std::string&>() : serialise(*value));
}

/// What an attribute means when it is not fine stands behind it, or below where there is too little room.
Lines attributeLines(const Value& disk, int room)
{
    constexpr int wide = 120;
    constexpr int indent = 6;
    const bool isNarrow = room > 0 && room < wide;
    TextTable table(
        {{.title = "ID", .width = 5, .align = Align::Right, .gap = 1}, {.title = "ATTRIBUTE", .width = 32, .least = 12},
            {"NOW", 7, Align::Right}, {.title = "WORST", .width = 7, .align = Align::Right, .leaves = 1},
            {.title = "LIMIT", .width = 7, .align = Align::Right, .gap = 2, .leaves = 2},
            {.title = "VALUE", .width = 19, .gap = 1, .least = 8}, {"STATE"}},
        room);
    const Value& attributes = listOf(disk, "attributes");
    for (const Value& attribute : attributes) {
        const std::string status = shown(attribute, "status");
        const Style style = status == "failing" ? Style::High : status == "fine" ? Style::Plain : Style::Warning;
        const std::string meaning = status != "fine" && find(attribute, "meaning") ? shown(attribute, "meaning") : "";
        table.add({{style, figure(attribute, "id", "")}, {style, shown(attribute, "name")},
            {style, figure(attribute, "current", "")}, {style, figure(attribute, "worst", "")},
            {style, figure(attribute, "threshold", "")}, {style, valueOf(attribute)},
            {style, isNarrow || meaning.empty() ? status : status + ": " + meaning}});
        if (isNarrow && !meaning.empty()) {
            addLines(table, wrappedLines(style, meaning, indent, room));
        }
    }
    return attributes.empty() ? Lines() : table.lines(Style::Faint);
}

/// Counters of an NVMe disk, which has no attributes.
Lines logLines(const Value& disk, int room)
{
    const Value* log = find(disk, "log");
    if (!log) {
        return {};
    }
    TextTable table({{.title = "", .width = 33, .gap = 1, .least = 19}, {}}, room);
    const auto add = [&](const std::string& label, const std::string& words) { table.add({"  " + label, words}); };
    const auto bytes = [&](std::string_view key) {
        const auto value = number(*log, key);
        return value ? formatBytes(*value) : "-";
    };
    add("Spare memory", figure(*log, "availableSpare", " %") + ", at least " + figure(*log, "spareThreshold", " %"));
    const auto time = [&](std::string_view key) {
        const auto seconds = number(*log, key);
        return seconds ? formatDuration(*seconds) : "-";
    };
    add("Data written", bytes("bytesWritten"));
    add("Data read", bytes("bytesRead"));
    add("Commands", figure(*log, "writeCommands", " writes, ") + figure(*log, "readCommands", " reads"));
    add("Busy", time("busyTime"));
    add("Too warm", time("warningTemperatureTime") + ", critically hot " + time("criticalTemperatureTime"));
    add("Power cycles", figure(disk, "powerCycles", ""));
    add("Unsafe shutdowns", figure(*log, "unsafeShutdowns", ""));
    add("Errors of its memory", figure(*log, "mediaErrors", ""));
    add("Entries in its error log", figure(*log, "errorLogEntries", ""));
    return table.lines();
}

} // namespace

Lines diskLines(const Value& disks, bool attributes, int room)
{
    if (!disks.is_array() || disks.empty()) {
        return {{{Style::Plain, "no disk with health data (SMART or NVMe) on this machine"}}};
    }
    TextTable table({{"DISK", 10}, {.title = "MODEL", .width = 29, .gap = 1, .least = 10},
                        {.title = "SERIAL", .width = 20, .gap = 1, .leaves = 1},
                        {.title = "KIND", .width = 6, .gap = 1, .leaves = 4}, {"TEMP", 6, Align::Right, 1},
                        {.title = "WEAR", .width = 6, .align = Align::Right, .gap = 1, .leaves = 3},
                        {.title = "POWERED ON", .width = 12, .align = Align::Right, .gap = 2, .leaves = 2}, {"HEALTH"}},
        room);
    for (const Value& disk : disks) {
        addDisk(table, disk, room);
        if (attributes) {
            addLines(table, attributeLines(disk, room));
            addLines(table, logLines(disk, room));
        }
    }
    return table.lines();
}

Lines diskActivityLines(const Value& disks, int room)
{
    TextTable table({{.title = "DISK", .width = 12, .gap = 1, .least = 8}, {"READS", 11, Align::Right, 1},
                        {"WRITES", 11, Align::Right, 1}, {.title = "BUSY", .width = 6, .align = Align::Right, .gap = 1},
                        {.title = "READ TAKES", .width = 11, .align = Align::Right, .gap = 1, .leaves = 2},
                        {.title = "WRITE TAKES", .width = 11, .align = Align::Right, .gap = 1, .leaves = 3},
                        {.title = "QUEUE", .width = 6, .align = Align::Right, .leaves = 1}},
        room);
    for (const Value& disk : disks.is_array() ? disks : Value::array()) {
        const auto words = [&disk](std::string_view key, auto format) {
            const auto value = number(disk, key);
            return value ? std::string(format(*value)) : std::string("-");
        };
        const auto milliseconds = [](double value) { return fmt::format("{:.1f} ms", value); };
        const auto busy = number(disk, "busy");
        constexpr double atItsLimits = 90; // %
        table.add({printable(text(disk, "name").value_or(text(disk, "disk").value_or("?"))),
            words("readbytes", formatByteRate), words("writtenbytes", formatByteRate),
            {busy.value_or(0) >= atItsLimits ? Style::Medium : Style::Plain, figure(disk, "busy", " %")},
            words("readtime", milliseconds), words("writetime", milliseconds),
            words("queue", [](double value) { return fmt::format("{:.1f}", value); })});
    }
    return disks.is_array() && !disks.empty() ? table.lines() : Lines();
}

} // namespace meridal
