// SPDX-License-Identifier: Apache-2.0
#include "client/views/TopView.h"

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/screen/TextTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <map>
#include <string>
#include <vector>

namespace meridal {

namespace {

constexpr double mebibyte = 1'048'576;

struct FigureColumn {
    std::string title;
    std::string (*format)(double) = nullptr;
    double medium = 0; ///< from here on a figure stands out
    double high = 0;   ///< from here on it alarms
    std::size_t figure = 0;
};

std::vector<FigureColumn> figuresOf(const TopTable& table)
{
    switch (table.list) {
    case RequestKey::Cpu:
        return {{"CPU %", formatFigure, 10, 50, 0}};
    case RequestKey::Memory: {
        std::vector<FigureColumn> columns = {{"MEMORY", formatBytes, 256 * mebibyte, 1024 * mebibyte, 0}};
        if (table.sum(1).value_or(0) > 0) { // hosts without footprints send none, or zeros
            columns.push_back({"FOOTPRINT", formatBytes, 256 * mebibyte, 1024 * mebibyte, 1});
        }
        return columns;
    }
    case RequestKey::Disk:
        return {{"READ", formatByteRate, mebibyte, 10 * mebibyte, 0},
            {"WRITE", formatByteRate, mebibyte, 10 * mebibyte, 1}};
    case RequestKey::Network:
        return {{"RECEIVED", formatByteRate, mebibyte, 10 * mebibyte, 0},
            {"SENT", formatByteRate, mebibyte, 10 * mebibyte, 1}};
    default:
        break;
    }
    return {{"ENERGY", formatFigure, 10, 50, 0}};
}

/// The sums over what is listed. The daemon lists a limited number, so they are no totals of the machine.
std::string totals(const TopTable& table, unsigned cores)
{
    const auto sum = [&](std::size_t column, std::string (*format)(double)) {
        const auto total = table.sum(column);
        return total ? format(*total) : std::string("-");
    };
    switch (table.list) {
    case RequestKey::Cpu: {
        std::string line = fmt::format("use {} % of one core", sum(0, formatFigure));
        if (cores > 0 && table.sum(0)) {
            line += fmt::format(", {} % of all {}", formatFigure(*table.sum(0) / cores), cores);
        }
        return line;
    }
    case RequestKey::Memory:
        return fmt::format("hold {}", sum(0, formatBytes));
    case RequestKey::Disk:
        return fmt::format("read {}, write {}", sum(0, formatByteRate), sum(1, formatByteRate));
    case RequestKey::Network:
        return fmt::format("receive {}, send {}", sum(0, formatByteRate), sum(1, formatByteRate));
    default:
        break;
    }
    return fmt::format("score {} together", sum(0, formatFigure));
}

/// How the list was counted, and so what may be missing in it.
std::string describeSource(const std::string& source)
{
    static const std::map<std::string, const char*> words = {
        {"bpf", "counted by the kernel"},
        {"capture", "counted from captured packets"},
        {"counters", "counted by TCP connection: no UDP, and nothing that came and went between two refreshes"},
        {"none", "not counted"},
    };
    const auto known = words.find(source);
    return known == words.end() ? printable(source) : known->second;
}

bool hasTrafficLine(const TopTable& table) { return table.traffic || !table.trafficSource.empty(); }

/// What the list cannot show: how it came about, traffic of nobody that is known, and of the kernel.
Line trafficLine(const TopTable& table)
{
    std::string words = describeSource(table.trafficSource);
    if (table.traffic) {
        words += fmt::format("{}kernel {}, unattributed {} ({} %)", words.empty() ? "" : "; ",
            formatByteRate(table.traffic->kernel), formatByteRate(table.traffic->unattributed),
            formatFigure(table.traffic->unattributedPercent()));
    }
    return {{Style::Faint, std::move(words)}};
}

TableCell figureCell(const TopRow& row, const FigureColumn& column)
{
    const std::optional<double> figure = row.figures.at(column.figure);
    const Style style = !figure || *figure == 0 ? Style::Faint
        : *figure >= column.high                ? Style::High
        : *figure >= column.medium              ? Style::Medium
                                                : Style::Plain;
    return {style, figure ? column.format(*figure) : "-"};
}

/// "meridald 0.1.0 on linux: 180 processes, 2 clients, itself 0.4 % CPU and 9.1 MiB", as far as the daemon said.
std::string daemonLine(const Dictionary& status)
{
    const auto release = text(status, "release");
    std::string line = release ? "meridald " + printable(*release) : "meridald";
    if (const auto host = text(status, "host")) {
        line += " on " + printable(*host);
    }
    const auto add = [&line](const Value* from, std::string_view key, auto describe) {
        const auto figure = from ? number(*from, key) : std::nullopt;
        if (figure) {
            line += "   " + describe(*figure);
        }
    };
    add(find(status, "passes"), "processes", [](double count) { return fixed0(count) + " processes"; });
    add(&status, "clients", [](double count) { return fixed0(count) + (count == 1 ? " client" : " clients"); });
    add(find(status, "usage"), "cpuPercent", [](double percent) { return "daemon " + fixed2(percent) + " % CPU"; });
    add(find(status, "usage"), "residentBytes", [](double bytes) { return "daemon " + formatBytes(bytes); });
    return line;
}

Line stateLine(const TopFrame& frame)
{
    if (!frame.connected) {
        return {{Style::Warning, "waiting for the daemon: it closed the connection, asking again every second"}};
    }
    return {{Style::Faint, daemonLine(frame.status)}};
}

Line keyLine(const TopFrame& frame)
{
    Line line = {{Style::Faint, " q quit  "}};
    for (const RequestKey list : allTopLists) {
        const std::string name(listName(list));
        line.push_back({list == frame.list ? Style::Title : Style::Faint,
            fmt::format("{} {}  ", std::countr_zero(mask(list)) + 1, name)});
    }
    line.push_back({frame.hierarchy ? Style::Title : Style::Faint, "h hierarchy"});
    return line;
}

/// The titles and the first so many rows.
Lines rowsOf(const TopTable& table, std::string nameTitle, std::size_t maximumRows)
{
    const std::vector<FigureColumn> figures = figuresOf(table);
    std::vector<TableColumn> columns = {{"PID", 8, Align::Right}};
    for (const FigureColumn& figure : figures) {
        columns.push_back({figure.title, 12, Align::Right});
    }
    columns.back().gap = 2;
    columns.push_back({std::move(nameTitle)});
    TextTable shown(std::move(columns));
    for (std::size_t i = 0; i < std::min(maximumRows, table.rows.size()); ++i) {
        const TopRow& row = table.rows[i];
        std::vector<TableCell> cells = {row.pid};
        for (const FigureColumn& figure : figures) {
            cells.push_back(figureCell(row, figure));
        }
        cells.emplace_back(row.name);
        shown.add(std::move(cells));
    }
    return shown.lines();
}

} // namespace

Lines tableLines(const TopFrame& frame, std::size_t maximumRows, int columns)
{
    const std::string title = upperCase(listName(frame.list)) + "  ";
    if (!frame.table) {
        return {cutLine({{Style::Title, title}, {Style::Faint, "asking the daemon"}}, columns)};
    }
    const TopTable& table = *frame.table;
    const std::string_view noun = frame.hierarchy ? "groups" : "processes";
    const std::string summary = table.rows.empty()
        ? fmt::format("no {} at work", noun)
        : fmt::format("{} {} listed {}", table.rows.size(), noun, totals(table, frame.cores));
    Lines lines = {cutLine({{Style::Title, title}, {Style::Plain, summary}}, columns)};

    if (hasTrafficLine(table)) {
        lines.push_back(cutLine(trafficLine(table), columns));
    }

    const std::size_t titlesAt = lines.size();
    for (Line& line : rowsOf(table, frame.hierarchy ? "GROUP" : "NAME", maximumRows)) {
        lines.push_back(cutLine(std::move(line), columns));
    }
    if (columns > 0) { // they are a bar across the screen
        lines[titlesAt] = {{Style::Heading, fitLeft(plainText(lines[titlesAt]), columns)}};
    }
    return lines;
}

Lines screenLines(const TopFrame& frame, std::size_t maximumRows, int rows, int columns)
{
    const auto height = static_cast<std::size_t>(std::max(rows, 0));
    // The daemon, the totals, where traffic went, the titles and the keys.
    const std::size_t aroundRows = frame.table && hasTrafficLine(*frame.table) ? 5 : 4;
    const std::size_t room = height > aroundRows ? height - aroundRows : 0;

    Lines lines = {cutLine(stateLine(frame), columns)};
    for (Line& line : tableLines(frame, std::min(maximumRows, room), columns)) {
        lines.push_back(std::move(line));
    }
    if (height >= aroundRows) {
        lines.resize(height - 1);
        lines.push_back(cutLine(keyLine(frame), columns));
    }
    lines.resize(std::min(lines.size(), height));
    return lines;
}

} // namespace meridal
