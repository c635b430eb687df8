// SPDX-License-Identifier: Apache-2.0
#include "client/views/ProcessView.h"

#include "base/Text.h"
#include "client/plot/Sparkline.h"
#include "client/screen/Format.h"
#include "client/screen/TextTable.h"
#include "client/screen/WallClock.h"

#include <fmt/format.h>

#include <string>
#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr int labelColumns = 13;
constexpr double courseSeconds = 60;
constexpr int minuteColumns = 30;

/// A line of what there is to say, on as many as it needs; none for nothing.
void addWords(Lines& lines, std::string_view label, const std::string& words, int room)
{
    if (words.empty()) {
        return;
    }
    Lines wrapped = wrappedLines(Style::Plain, words, labelColumns, room);
    wrapped.front() = subjectLine(label, {wrapped.front().back()});
    appendLines(lines, wrapped);
}

void addPart(std::string& words, const std::string& more)
{
    words += (words.empty() || more.empty() ? "" : ", ") + more;
}

std::string detailText(const Value& answer, const char* key) { return printable(text(answer, key).value_or("")); }

/// "3 threads"; nothing where it is not known.
std::string detailCount(const Value& answer, const char* key, const char* one, const char* many)
{
    const auto count = integer(answer, key);
    return count ? fmt::format("{} {}", *count, *count == 1 ? one : many) : "";
}

std::string namesIn(const Value* list)
{
    std::string names;
    for (const Value& each : list && list->is_array() ? *list : Value::array()) {
        addPart(names, fmt::format("{} {}", integer(each, "pid").value_or(0), detailText(each, "name")));
    }
    return names;
}

std::string groupWords(const Value& answer)
{
    const Value* group = find(answer, "group");
    const auto processes = group ? integer(*group, "processes") : std::nullopt;
    return processes.value_or(0) > 1
        ? fmt::format("{} {}, {} processes", integer(*group, "pid").value_or(0), detailText(*group, "name"), *processes)
        : std::string();
}

std::string ratesOf(const Value& answer, const char* in, const char* inWord, const char* out, const char* outWord)
{
    std::string words;
    for (const auto& [key, word] : {std::pair(in, inWord), std::pair(out, outWord)}) {
        const auto rate = number(answer, key);
        addPart(words, rate ? fmt::format("{} {}", formatByteRate(*rate), word) : "");
    }
    return words;
}

/// A figure over the last minute, as far as somebody has asked for the process.
void addCourse(Lines& lines, std::string_view label, const Value& answer, const char* key, std::string now)
{
    std::vector<PlotPoint> points;
    const Value* course = find(answer, "course");
    for (const Value& point : course && course->is_array() ? *course : Value::array()) {
        const auto figure = number(point, key);
        if (figure) {
            points.push_back({number(point, "time").value_or(0), *figure});
        }
    }
    if (now.empty() && points.empty()) {
        return;
    }
    Line line = {{Style::Plain, std::move(now)}};
    if (points.size() > 1) {
        const double end = number(answer, "time").value_or(0);
        line.push_back({Style::Faint, "  " + sparkline(points, end - courseSeconds, end, minuteColumns)});
    }
    lines.push_back(subjectLine(label, std::move(line)));
}

void addConnections(Lines& lines, const Value* hosts, int room)
{
    if (!hosts || !hosts->is_array() || hosts->empty()) {
        return;
    }
    lines.push_back({});
    TextTable table(
        {{.title = "HOST", .width = 40, .gap = 1, .least = 15}, {"PROTOCOL", 9}, {"CONNECTIONS", 11, Align::Right, 1},
            {.title = "RECEIVED", .width = 10, .align = Align::Right, .gap = 1},
            {.title = "SENT", .width = 10, .align = Align::Right, .gap = 2}, {"PORTS"}},
        room);
    for (const Value& host : *hosts) {
        std::string ports;
        const Value* list = find(host, "ports");
        for (const Value& port : list && list->is_array() ? *list : Value::array()) {
            addPart(ports, port.is_number() ? fixed0(port.get<double>()) : "?");
        }
        const auto bytes = [&host](const char* key) {
            const auto count = number(host, key);
            return count ? formatBytes(*count) : std::string("-");
        };
        table.add({detailText(host, "host"), detailText(host, "protocol"),
            std::to_string(integer(host, "connections").value_or(0)), bytes("received"), bytes("sent"), ports});
    }
    appendLines(lines, table.lines());
}

} // namespace

Lines processDetailLines(const Value& answer, int room)
{
    Lines lines = {
        {{Style::Title, fmt::format("{} {}", integer(answer, "pid").value_or(0), detailText(answer, "name"))}}};
    const auto start = number(answer, "start");
    std::string state = detailText(answer, "state");
    addPart(state, start && *start > 0 ? "since " + formatWithZone(*start) : "");
    addPart(state, detailCount(answer, "threads", "thread", "threads"));
    const auto nice = integer(answer, "nice");
    addPart(state, nice && *nice != 0 ? fmt::format("nice {}", *nice) : "");
    addPart(state, detailCount(answer, "descriptors", "open descriptor", "open descriptors"));
    addWords(lines, "state", state, room);
    addWords(lines, "user", detailText(answer, "user"), room);
    addWords(lines, "command", detailText(answer, "command"), room);
    addWords(lines, "program", detailText(answer, "executable"), room);
    addWords(lines, "folder", detailText(answer, "workingDirectory"), room);
    addWords(lines, "unit", detailText(answer, "unit"), room);
    addWords(lines, "application", groupWords(answer), room);
    addWords(lines, "parents", namesIn(find(answer, "parents")), room);
    addWords(lines, "children", namesIn(find(answer, "children")), room);
    const auto cpu = number(answer, "cpu");
    addCourse(lines, "CPU", answer, "cpu", cpu ? formatFigure(*cpu) + " % of one core" : "");
    const auto footprint = number(answer, "footprint");
    addCourse(lines, "memory", answer, "footprint", footprint ? formatBytes(*footprint) : "");
    std::string rest;
    for (const auto& [key, word] : {std::pair("resident", "resident"), std::pair("swap", "in swap")}) {
        const auto bytes = number(answer, key);
        addPart(rest, bytes && *bytes > 0 ? fmt::format("{} {}", formatBytes(*bytes), word) : "");
    }
    addWords(lines, "", rest, room);
    addWords(lines, "disk", ratesOf(answer, "diskRead", "read", "diskWritten", "written"), room);
    addWords(lines, "network", ratesOf(answer, "received", "received", "sent", "sent"), room);
    const auto score = number(answer, "energyScore");
    const auto wakeups = number(answer, "wakeups");
    std::string energy = score ? "score " + formatFigure(*score) : "";
    addPart(energy, wakeups ? formatFigure(*wakeups) + " wake-ups a second" : "");
    addWords(lines, "energy", energy, room);
    addConnections(lines, find(answer, "connections"), room);
    return lines;
}

} // namespace meridal
