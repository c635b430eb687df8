// SPDX-License-Identifier: Apache-2.0
#include "client/views/StatusView.h"

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/screen/TextTable.h"

#include <fmt/format.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

namespace {

/// One figure of a line: where it stands, and how it reads.
struct Part {
    std::string_view key;
    std::string (*describe)(double) = nullptr;
};

std::string count(double value) { return fixed0(value); }

Line subject(std::string_view label, std::string words)
{
    return subjectLine(label, {{Style::Plain, std::move(words)}});
}

/// Adds a line of the figures that are there; none when none is.
void addFigures(Lines& lines, std::string_view label, const Value* from, const std::vector<Part>& parts)
{
    std::string words;
    for (const Part& part : parts) {
        if (const auto figure = from ? number(*from, part.key) : std::nullopt) {
            words += (words.empty() ? "" : ", ") + part.describe(*figure);
        }
    }
    if (!words.empty()) {
        lines.push_back(subject(label, std::move(words)));
    }
}

void addUsage(Lines& lines, const Value* usage)
{
    addFigures(lines, "CPU", usage,
        {{"cpuPercent", [](double percent) { return fixed2(percent) + " % of one core lately"; }},
            {"cpuPercentSinceStart", [](double percent) { return fixed2(percent) + " % since the start"; }},
            {"cpuSeconds", [](double seconds) { return fixed2(seconds) + " s in all"; }}});
    addFigures(lines, "memory", usage,
        {{"residentBytes", [](double bytes) { return formatBytes(bytes) + " resident"; }},
            {"proportionalBytes", [](double bytes) { return formatBytes(bytes) + " as its share"; }}});
    addFigures(lines, "wake-ups", usage,
        {{"wakeupsPerSecond", [](double rate) { return fixed2(rate) + " a second lately"; }},
            {"wakeupsPerSecondSinceStart", [](double rate) { return fixed2(rate) + " since the start"; }},
            {"wakeups", [](double total) { return count(total) + " in all"; }}});
    addFigures(lines, "written", usage, {{"bytesWritten", formatBytes}});
    addFigures(lines, "descriptors", usage, {{"openDescriptors", count}});
}

void addTraffic(Lines& lines, const Value* transport)
{
    addFigures(lines, "connections", transport,
        {{"openConnections", [](double value) { return count(value) + " open"; }},
            {"acceptedConnections", [](double value) { return count(value) + " accepted"; }}});
    addFigures(lines, "requests", transport,
        {{"requests", count}, {"badRequests", [](double value) { return count(value) + " bad"; }}});
    addFigures(lines, "envelopes", transport,
        {{"envelopesSent", [](double value) { return count(value) + " sent"; }},
            {"envelopesDropped", [](double value) { return count(value) + " replaced before they were taken"; }}});
}

/// How traffic is counted by process at this moment.
void addTrafficSource(Lines& lines, const Value* capture)
{
    const auto source = capture ? text(*capture, "source") : std::nullopt;
    if (!source || *source == "none") {
        return;
    }
    const auto method = text(*capture, "method");
    lines.push_back(subject("traffic", "counted by " + printable(*source + (method ? ", " + *method : ""))));
}

void addTexts(Lines& lines, std::string_view title, Style style, const Value* entries)
{
    if (!entries || !entries->is_object() || entries->empty()) {
        return;
    }
    lines.push_back({});
    lines.push_back({{style, std::string(title)}});
    TextTable table({{"", 30, Align::Left, 1}, {}});
    for (const auto& entry : entries->items()) {
        const std::string words =
            entry.value().is_string() ? entry.value().get<std::string>() : serialise(entry.value());
        table.add({"  " + printable(entry.key()), printable(words)});
    }
    appendLines(lines, table.lines());
}

/// What the configuration says that cannot be done.
void addConfiguration(Lines& lines, const Value* configuration)
{
    const Value* warnings = configuration ? find(*configuration, "warnings") : nullptr;
    if (!warnings || !warnings->is_array() || warnings->empty()) {
        return;
    }
    lines.push_back({});
    lines.push_back({{Style::Warning, "Not understood in the configuration"}});
    for (const Value& warning : *warnings) {
        const auto line = integer(warning, "line");
        lines.push_back({{Style::Plain,
            "  " + printable(text(warning, "file").value_or("")) + (line ? fmt::format(":{}", *line) : "") + ": "
                + printable(text(warning, "text").value_or(""))}});
    }
}

Line headline(const Dictionary& status)
{
    std::string words = "meridald";
    if (const auto release = text(status, "release")) {
        words += " " + printable(*release);
    }
    const auto version = number(status, "version");
    const auto build = integer(status, "build");
    if (version && build) {
        words += fmt::format(" (protocol {:.4g}, build {})", *version, *build);
    }
    if (const auto host = text(status, "host")) {
        words += " on " + printable(*host);
    }
    if (const auto pid = integer(status, "pid")) {
        words += fmt::format(", process {}", *pid);
    }
    if (const auto uptime = number(status, "uptime")) {
        words += ", up " + formatDuration(*uptime);
    }
    return {{Style::Title, words}};
}

} // namespace

Lines statusLines(const Dictionary& status)
{
    Lines lines = {headline(status)};
    addUsage(lines, find(status, "usage"));
    addFigures(lines, "clients", &status, {{"clients", count}});
    addTraffic(lines, find(status, "transport"));
    addFigures(lines, "passes", find(status, "passes"),
        {{"count", count},
            {"lastSeconds", [](double seconds) { return "the last took " + formatMilliseconds(seconds); }},
            {"processes", [](double value) { return count(value) + " processes"; }}});
    if (const Value* processes = find(status, "processes")) {
        if (const auto source = text(*processes, "source")) {
            lines.push_back(subject("processes", "read by " + printable(*source)));
        }
    }
    addTrafficSource(lines, find(status, "capture"));
    addFigures(lines, "capture", find(status, "capture"),
        {{"frames", [](double value) { return count(value) + " frames"; }},
            {"droppedFrames", [](double value) { return count(value) + " dropped"; }},
            {"processBytes", [](double bytes) { return "processes " + formatBytes(bytes); }},
            {"kernelBytes", [](double bytes) { return "kernel " + formatBytes(bytes); }},
            {"elsewhereBytes", [](double bytes) { return "in other networks " + formatBytes(bytes); }},
            {"unattributedBytes", [](double bytes) { return "unattributed " + formatBytes(bytes); }},
            {"unattributedPercent", [](double percent) { return fixed2(percent) + " % unattributed"; }}});
    addFigures(lines, "history", find(status, "databases"),
        {{"rowsWritten", [](double value) { return count(value) + " rows written"; }},
            {"bytes", [](double bytes) { return formatBytes(bytes) + " in files"; }},
            {"statementsWaiting", [](double value) { return count(value) + " waiting"; }},
            {"statementsDropped", [](double value) { return count(value) + " given up"; }}});
    addFigures(lines, "log", find(status, "log"),
        {{"droppedLines", [](double value) { return count(value) + " lines dropped"; }}});
    addTexts(lines, "Files", Style::Title, find(status, "paths"));
    addConfiguration(lines, find(status, "configuration"));
    addTexts(lines, "Not to be had on this machine", Style::Warning, find(status, "limitations"));
    return lines;
}

} // namespace meridal
