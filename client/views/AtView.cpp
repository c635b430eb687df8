// SPDX-License-Identifier: Apache-2.0
#include "client/views/AtView.h"

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/screen/TextTable.h"
#include "client/screen/WallClock.h"
#include "client/views/SensorsView.h"

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

constexpr std::size_t mostRows = 12;

const Value& entryOf(const Value& from, std::string_view key)
{
    static const Value nothing;
    const Value* found = find(from, key);
    return found ? *found : nothing;
}

std::string words(const Value& from, std::string_view key) { return printable(text(from, key).value_or("")); }

std::string dayAndTime(std::optional<double> time) { return formatTime(time, "%a %Y-%m-%d %H:%M:%S"); }

std::string percent(double share) { return fmt::format("{:.1f} %", share); }

/// Figures in one line, of those that are there.
class Parts {
public:
    explicit Parts(const Value& from) : from_(from) { }
    Parts& add(const char* key, std::string (*format)(double), const char* before, const char* behind = "")
    {
        if (const auto figure = number(from_, key)) {
            text_ += fmt::format("{}{}{}{}", text_.empty() ? "" : ", ", before, format(*figure), behind);
        }
        return *this;
    }
    const std::string& text() const { return text_; }

private:
    const Value& from_;
    std::string text_;
};

std::string plainNumber(double figure) { return fmt::format("{:.2f}", figure); }
std::string milliseconds(double figure) { return fmt::format("{:.1f} ms", figure); }

std::string stateText(const Value& boot)
{
    const Value& on = entryOf(boot, "on");
    const Value& asleep = entryOf(boot, "asleep");
    std::string state = on == true ? asleep == true ? "asleep" : "on and awake"
        : on == false              ? asleep.is_null() ? "fell asleep and did not wake" : "off, or without the daemon"
                                   : "not known";
    const auto since = number(boot, "since");
    const auto until = number(boot, "until");
    state += since ? " since " + dayAndTime(since) : "";
    state += until ? (since ? ", until " : ", at least until ") + dayAndTime(until) : "";
    return state;
}

std::string listOfReadings(const Value& list)
{
    std::string all;
    std::string chip;
    if (list.is_array()) {
        for (const Value& each : list) {
            const std::string of = words(each, "chip");
            all += all.empty() ? "" : ", ";
            all += of.empty() || of == chip ? "" : of + ": ";
            all += words(each, "name") + " " + formatReading(entryOf(each, "value"), words(each, "unit"));
            chip = of;
        }
    }
    return all;
}

/// The label stands once, whatever the number of lines.
class Page {
public:
    explicit Page(Lines& lines) : lines_(lines) { }
    void add(std::string_view label, const std::string& words, Style style = Style::Plain)
    {
        if (!words.empty()) {
            lines_.push_back(subjectLine(label == last_ ? "" : label, {{style, words}}));
            last_ = label;
        }
    }

private:
    Lines& lines_;
    std::string last_;
};

double sumOf(const Value& from, const char* first, const char* second)
{
    return number(from, first).value_or(0) + number(from, second).value_or(0);
}

void addMachine(const Value& answer, Page& page)
{
    const Value& cpu = entryOf(answer, "cpu");
    page.add("CPU",
        Parts(cpu)
            .add("busy", percent, "", " busy")
            .add("user", percent, "user ")
            .add("system", percent, "system ")
            .add("iowait", percent, "waiting for disks ")
            .add("steal", percent, "stolen ")
            .text());
    page.add("load",
        Parts(entryOf(answer, "load"))
            .add("load1", plainNumber, "")
            .add("load5", plainNumber, "")
            .add("load15", plainNumber, "")
            .text());
    page.add("memory",
        Parts(entryOf(answer, "memory"))
            .add("used", formatBytes, "", " used")
            .add("available", formatBytes, "", " available")
            .add("cached", formatBytes, "", " cached")
            .text());
    const Value& paging = entryOf(answer, "paging");
    const double swapped = number(entryOf(answer, "swap"), "swapused").value_or(0);
    if (swapped > 0 || sumOf(paging, "swapin", "swapout") > 0) {
        page.add("swap",
            formatBytes(swapped) + " used, "
                + Parts(paging).add("swapin", formatByteRate, "in ").add("swapout", formatByteRate, "out ").text());
    }
    page.add("waiting",
        Parts(entryOf(answer, "pressure"))
            .add("cpusome", percent, "for the CPU ")
            .add("memorysome", percent, "for memory ")
            .add("iosome", percent, "for disks ")
            .text());
    page.add("temperatures", listOfReadings(entryOf(answer, "temperatures")));
    page.add("fans", listOfReadings(entryOf(answer, "fans")));
    page.add("power", listOfReadings(entryOf(answer, "power")));
}

void addDisks(const Value& answer, Page& page)
{
    const Value& disks = entryOf(answer, "disks");
    for (std::size_t place = 0; disks.is_array() && place < std::min(disks.size(), mostRows); ++place) {
        const Value& disk = disks[place];
        page.add("disks",
            words(disk, "disk") + " "
                + Parts(disk)
                      .add("readbytes", formatByteRate, "reads ")
                      .add("writtenbytes", formatByteRate, "writes ")
                      .add("busy", percent, "", " busy")
                      .add("readtime", milliseconds, "reading takes ")
                      .add("writetime", milliseconds, "writing takes ")
                      .text());
    }
}

void addNetwork(const Value& answer, Page& page)
{
    const Value& network = entryOf(answer, "network");
    for (std::size_t place = 0; network.is_array() && place < std::min(network.size(), mostRows); ++place) {
        const Value& each = network[place];
        const double span = number(each, "until").value_or(0) - number(each, "from").value_or(0);
        const std::string wifi = text(each, "station") ? words(each, "wifi") : "";
        std::string line = words(each, "interface");
        line += text(each, "station") ? wifi.empty() ? " on a hidden Wi-Fi network" : " on \"" + wifi + "\"" : "";
        if (number(each, "received")) {
            line += fmt::format(": {} received and {} sent in the {} from {}",
                formatBytes(number(each, "received").value_or(0)), formatBytes(number(each, "sent").value_or(0)),
                formatSpan(std::max(0.0, std::round(span))), formatTime(number(each, "from"), "%H:%M"));
        }
        if (const Value& rates = entryOf(each, "rates"); rates.is_object()) {
            line += (number(each, "received") ? ", then " : ": ")
                + Parts(rates)
                      .add("received", formatByteRate, "", " in")
                      .add("sent", formatByteRate, "", " out")
                      .text();
        }
        page.add("network", line);
    }
    const Value& gpus = entryOf(answer, "gpus");
    for (std::size_t place = 0; gpus.is_array() && place < std::min(gpus.size(), mostRows); ++place) {
        page.add("graphics",
            words(gpus[place], "gpu") + " "
                + Parts(gpus[place])
                      .add("busy", percent, "", " busy")
                      .add("memoryused", formatBytes, "", " used")
                      .text());
    }
    const Value& others = entryOf(answer, "others");
    for (std::size_t place = 0; others.is_array() && place < std::min(others.size(), mostRows); ++place) {
        const Value& each = others[place];
        std::string line = words(each, "series") + " ";
        const Value& values = entryOf(each, "values");
        if (values.is_object()) {
            for (const auto& [column, figure] : values.items()) {
                line += fmt::format("{}{} {}", line.back() == ' ' ? "" : ", ", printable(column),
                    formatReading(figure, words(each, "unit")));
            }
        } else {
            line += formatReading(entryOf(each, "value"), words(each, "unit"));
        }
        page.add("also", line);
    }
}

void addBattery(const Value& answer, Page& page)
{
    const Value& batteries = entryOf(answer, "battery");
    if (!batteries.is_array()) {
        return;
    }
    for (const Value& each : batteries) {
        const auto source = integer(each, "source");
        page.add("battery",
            fmt::format("{}: {} since {}", words(each, "key"),
                source == 1       ? "on AC power"
                    : source == 0 ? "on battery"
                                  : "source not known",
                dayAndTime(number(each, "since"))));
    }
}

std::string ifAny(double amount, std::string (*format)(double)) { return amount > 0 ? format(amount) : "-"; }

void addApplicationTable(const Value& answer, int room, Lines& lines)
{
    const Value& applications = entryOf(answer, "applications");
    const double from = number(answer, "applicationsFrom").value_or(0);
    const double span = number(answer, "applicationsUntil").value_or(0) - from;
    if (!applications.is_array() || applications.empty() || span <= 0) {
        return;
    }
    TextTable table({{.title = "APPLICATION", .width = 30, .least = 12}, {"CPU", 9, Align::Right, 2},
                        {"MEMORY", 10, Align::Right, 2}, {"DISK", 12, Align::Right, 2}, {"NETWORK", 12, Align::Right}},
        room);
    for (std::size_t place = 0; place < std::min(applications.size(), mostRows); ++place) {
        const Value& each = applications[place];
        constexpr double hundred = 100;
        table.add({words(each, "name"), percent(hundred * sumOf(each, "cpuUser", "cpuSystem") / span),
            ifAny(number(each, "memory").value_or(0), formatBytes),
            ifAny(sumOf(each, "diskRead", "diskWritten") / span, formatByteRate),
            ifAny(sumOf(each, "received", "sent") / span, formatByteRate)});
    }
    lines.push_back({});
    lines.push_back({{Style::Title,
        fmt::format("Applications, {} from {}", formatSpan(std::round(span)), formatTime(from, "%H:%M:%S"))}});
    appendLines(lines, table.lines());
}

void addProcessTable(const Value& answer, int room, Lines& lines)
{
    const Value& processes = entryOf(answer, "processes");
    if (!processes.is_array() || processes.empty()) {
        return;
    }
    TextTable table(
        {{.title = "PROCESS", .width = 30, .least = 12}, {"PID", 8, Align::Right, 2}, {"CPU", 9, Align::Right, 2},
            {"MEMORY", 10, Align::Right, 2}, {"DISK", 10, Align::Right, 2}, {"NETWORK", 10, Align::Right}},
        room);
    for (std::size_t place = 0; place < std::min(processes.size(), mostRows); ++place) {
        const Value& each = processes[place];
        table.add({words(each, "name"), fmt::format("{}", integer(each, "pid").value_or(0)),
            fmt::format("{:.1f} s", number(each, "cpu").value_or(0)),
            ifAny(number(each, "memory").value_or(0), formatBytes),
            ifAny(number(each, "disk").value_or(0), formatBytes),
            ifAny(number(each, "network").value_or(0), formatBytes)});
    }
    lines.push_back({});
    lines.push_back({{Style::Title, "The largest processes of that minute"}});
    appendLines(lines, table.lines());
}

std::string amountText(double figure, const std::string& unit)
{
    return unit == "B" ? formatBytes(figure) : unit == "B/s" ? formatByteRate(figure) : formatReading(figure, unit);
}

void addChanges(const Value& answer, Lines& lines)
{
    const Value& changes = entryOf(answer, "changes");
    if ((!changes.is_array() || changes.empty()) && !find(answer, "cpu") && !find(answer, "memory")) {
        return; // who knows
    }
    lines.push_back({});
    lines.push_back({{Style::Title, "What changed in the ten minutes around it"}});
    if (!changes.is_array() || changes.empty()) {
        lines.push_back({{Style::Faint, "  nothing that stands out"}});
        return;
    }
    for (const Value& each : changes) {
        std::string line = formatTime(number(each, "time"), "%H:%M:%S") + "  " + words(each, "what");
        const auto from = number(each, "from");
        const auto to = number(each, "to");
        if (from && to) {
            const std::string unit = text(each, "unit").value_or("");
            line += fmt::format(
                " {} from {} to {}", *to > *from ? "rose" : "fell", amountText(*from, unit), amountText(*to, unit));
        }
        lines.push_back({{Style::Plain, "  " + line}});
    }
}

void addUnknown(const Value& answer, Lines& lines)
{
    const Value& unknown = entryOf(answer, "unknown");
    if (!unknown.is_array() || unknown.empty()) {
        return;
    }
    lines.push_back({});
    lines.push_back({{Style::Title, "Not known of that moment"}});
    for (const Value& each : unknown) {
        lines.push_back({{Style::Plain, "  " + words(each, "what") + ": " + words(each, "why")}});
    }
}

/// What the figures are means of: those of the machine have one period.
std::string periodText(const Value& answer)
{
    const Value& cpu = entryOf(answer, "cpu");
    const Value& any = cpu.is_object() ? cpu : entryOf(answer, "memory");
    const auto from = number(any, "from");
    const auto until = number(any, "until");
    return from && until
        ? fmt::format("means of the {} from {}", formatSpan(std::round(*until - *from)), formatTime(from, "%H:%M:%S"))
        : "";
}

} // namespace

Lines atLines(const Value& answer, double now, int room)
{
    Lines lines;
    const double time = number(answer, "time").value_or(0);
    lines.push_back({{Style::Title, formatWithZone(time)},
        {Style::Faint, now - time >= 1 ? ", " + formatSpan(std::round(now - time)) + " ago" : ", now"}});
    Page page(lines);
    page.add("machine", stateText(entryOf(answer, "boot")));
    page.add("figures", periodText(answer), Style::Faint);
    addMachine(answer, page);
    addDisks(answer, page);
    addNetwork(answer, page);
    addBattery(answer, page);
    addApplicationTable(answer, room, lines);
    addProcessTable(answer, room, lines);
    addChanges(answer, lines);
    addUnknown(answer, lines);
    const Value& known = entryOf(answer, "known");
    if (const auto from = number(known, "from")) {
        lines.push_back({});
        lines.push_back({{Style::Faint,
            fmt::format("The record reaches from {} to {}.", dayAndTime(from), dayAndTime(number(known, "until")))}});
    }
    return lines;
}

Lines batteryLinesAt(const Value& answer)
{
    Lines lines;
    Page page(lines);
    addBattery(answer, page);
    const Value& others = entryOf(answer, "others");
    for (const Value& each : others.is_array() ? others : Value::array()) {
        if (text(each, "series").value_or("").starts_with("battery/")) {
            page.add("then", words(each, "name") + " " + formatReading(entryOf(each, "value"), words(each, "unit")));
        }
    }
    return lines.empty() ? Lines{{{Style::Plain, "no battery was recorded at that moment"}}} : lines;
}

} // namespace meridal
