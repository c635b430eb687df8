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

/// In one phrase, the worst first.
Span verdict(const Value& disk)
{
    const Value* healthy = find(disk, "healthy");
    if (healthy && *healthy == false) {
        return {Style::High, "FAILING"};
    }
    const std::string state = shown(disk, "state");
    if (state == "hanging") {
        return {Style::Warning, "does not answer; figures are old"};
    }
    if (!listOf(disk, "problems").empty()) {
        return {Style::Warning, "has problems"};
    }
    if (state == "asleep") {
        return {Style::Faint, "asleep"};
    }
    if (state == "hidden") {
        return {Style::Faint, "not read: its adapter does not tell whether it sleeps (meridald --read-hidden-disks)"};
    }
    if (state == "off") {
        return {Style::Faint, "SMART is off; smartctl --smart=on /dev/" + shown(disk, "bsd") + " switches it on"};
    }
    if (state == "denied") {
        return {Style::Faint, "not read: the daemon has no right to"};
    }
    if (state == "silent" || state == "unread") {
        return {Style::Faint, state == "silent" ? "no answer that makes sense" : "not read yet"};
    }
    return healthy && *healthy == true ? Span{Style::Plain, "fine"} : Span{Style::Faint, "does not say"};
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

void addDisk(TextTable& table, const Value& disk)
{
    const auto seconds = number(disk, "powerOn");
    table.add({{Style::Title, shown(disk, "bsd")}, shown(disk, "model"), shown(disk, "serial"), kindOf(disk),
        figure(disk, "temperature", " °C"), figure(disk, "wear", " %"), seconds ? formatDuration(*seconds) : "-",
        Line{verdict(disk)}});
    for (const Value& problem : listOf(disk, "problems")) {
        if (problem.is_string()) {
            const auto& words = problem.get_ref<const std::string&>();
            table.addLine({{Style::Plain, "  "}, {styleOfProblem(disk, words), printable(words)}});
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

Lines attributeLines(const Value& disk)
{
    TextTable table({{"ID", 5, Align::Right, 1}, {"ATTRIBUTE", 32}, {"NOW", 7, Align::Right},
        {"WORST", 7, Align::Right}, {"LIMIT", 7, Align::Right, 2}, {"VALUE", 19, Align::Left, 1}, {"STATE"}});
    const Value& attributes = listOf(disk, "attributes");
    for (const Value& attribute : attributes) {
        const std::string status = shown(attribute, "status");
        const Style style = status == "failing" ? Style::High : status == "fine" ? Style::Plain : Style::Warning;
        std::string words = status;
        if (status != "fine" && find(attribute, "meaning")) {
            words += ": " + shown(attribute, "meaning");
        }
        table.add({{style, figure(attribute, "id", "")}, {style, shown(attribute, "name")},
            {style, figure(attribute, "current", "")}, {style, figure(attribute, "worst", "")},
            {style, figure(attribute, "threshold", "")}, {style, valueOf(attribute)}, {style, words}});
    }
    return attributes.empty() ? Lines() : table.lines(Style::Faint);
}

/// Counters of an NVMe disk, which has no attributes.
Lines logLines(const Value& disk)
{
    const Value* log = find(disk, "log");
    if (!log) {
        return {};
    }
    TextTable table({{"", 34}, {}});
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
                        {"SERIAL", 20, Align::Left, 1}, {"KIND", 6}, {"TEMP", 7, Align::Right},
                        {"WEAR", 7, Align::Right}, {"POWERED ON", 13, Align::Right, 2}, {"HEALTH"}},
        room);
    for (const Value& disk : disks) {
        addDisk(table, disk);
        for (const Line& line : attributes ? attributeLines(disk) : Lines()) {
            table.addLine(line);
        }
        for (const Line& line : attributes ? logLines(disk) : Lines()) {
            table.addLine(line);
        }
    }
    return table.lines();
}

} // namespace meridal
