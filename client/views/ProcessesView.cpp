// SPDX-License-Identifier: Apache-2.0
#include "client/views/ProcessesView.h"

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/screen/TextTable.h"
#include "client/screen/WallClock.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

namespace meridal {

namespace {

constexpr std::array<ProcessWord, 22> columnWords = {
    {{"pid", "pid"}, {"parent", "parent"}, {"start", "start"}, {"user", "user"}, {"name", "name"}, {"state", "state"},
        {"nice", "nice"}, {"threads", "threads"}, {"group", "group"}, {"processes", "processes"}, {"unit", "unit"},
        {"command", "command"}, {"cpu", "cpu"}, {"memory", "footprint"}, {"resident", "resident"}, {"swap", "swap"},
        {"read", "diskRead"}, {"written", "diskWritten"}, {"received", "received"}, {"sent", "sent"},
        {"energy", "energyScore"}, {"wakeups", "wakeups"}}};

/// How a column of the answer is shown.
struct ProcessCells {
    const char* column;
    TableColumn place;
    std::string (*cell)(const Value& row, const char* column);
};

std::string textOfRow(const Value& row, const char* column) { return printable(text(row, column).value_or("")); }

std::string wholeOfRow(const Value& row, const char* column)
{
    const auto figure = integer(row, column);
    return figure ? std::to_string(*figure) : "-";
}

std::string figureOfRow(const Value& row, const char* column)
{
    const auto figure = number(row, column);
    return figure ? formatFigure(*figure) : "-";
}

std::string bytesOfRow(const Value& row, const char* column)
{
    const auto figure = number(row, column);
    return figure ? formatBytes(*figure) : "-";
}

std::string rateOfRow(const Value& row, const char* column)
{
    const auto figure = number(row, column);
    return !figure ? "-" : *figure > 0 ? formatByteRate(*figure) : "0";
}

std::string startOfRow(const Value& row, const char* column)
{
    const auto start = number(row, column);
    return start && *start > 0 ? formatTime(*start, "%Y-%m-%d %H:%M") : "-";
}

/// "unit:", "app:" and "container:" before what people know it by say nothing that a column of its own does not.
std::string unitOfRow(const Value& row, const char* column)
{
    const std::string unit = textOfRow(row, column);
    return unit.substr(unit.find(':') == std::string::npos ? 0 : unit.find(':') + 1);
}

/// Who has no command line, as threads of the kernel, is known by the name.
std::string commandOfRow(const Value& row, const char* column)
{
    const std::string command = textOfRow(row, column);
    return command.empty() ? "[" + textOfRow(row, "name") + "]" : command;
}

const std::vector<ProcessCells>& processCells()
{
    static const std::vector<ProcessCells> columns = {
        {"pid", {.title = "PID", .width = 7, .align = Align::Right, .gap = 1, .least = 4}, wholeOfRow},
        {"parent", {.title = "PARENT", .width = 7, .align = Align::Right, .gap = 1, .leaves = 1}, wholeOfRow},
        {"group", {.title = "GROUP", .width = 7, .align = Align::Right, .gap = 1, .leaves = 2}, wholeOfRow},
        {"start", {.title = "STARTED", .width = 16, .gap = 1, .leaves = 3}, startOfRow},
        {"user", {.title = "USER", .width = 12, .gap = 1, .least = 5, .leaves = 9}, textOfRow},
        {"processes", {.title = "PROCS", .width = 5, .align = Align::Right, .gap = 1, .leaves = 8}, wholeOfRow},
        {"cpu", {.title = "CPU %", .width = 6, .align = Align::Right, .gap = 1}, figureOfRow},
        {"footprint", {.title = "MEMORY", .width = 9, .align = Align::Right, .gap = 1}, bytesOfRow},
        {"resident", {.title = "RESIDENT", .width = 9, .align = Align::Right, .gap = 1, .leaves = 7}, bytesOfRow},
        {"swap", {.title = "SWAP", .width = 9, .align = Align::Right, .gap = 1, .leaves = 4}, bytesOfRow},
        {"diskRead", {.title = "READ", .width = 11, .align = Align::Right, .gap = 1, .leaves = 6}, rateOfRow},
        {"diskWritten", {.title = "WRITTEN", .width = 11, .align = Align::Right, .gap = 1, .leaves = 6}, rateOfRow},
        {"received", {.title = "RECEIVED", .width = 11, .align = Align::Right, .gap = 1, .leaves = 5}, rateOfRow},
        {"sent", {.title = "SENT", .width = 11, .align = Align::Right, .gap = 1, .leaves = 5}, rateOfRow},
        {"energyScore", {.title = "ENERGY", .width = 6, .align = Align::Right, .gap = 1, .leaves = 4}, figureOfRow},
        {"wakeups", {.title = "WAKE/S", .width = 7, .align = Align::Right, .gap = 1, .leaves = 4}, figureOfRow},
        {"nice", {.title = "NICE", .width = 4, .align = Align::Right, .gap = 1, .leaves = 1}, wholeOfRow},
        {"threads", {.title = "THR", .width = 4, .align = Align::Right, .gap = 1, .leaves = 3}, wholeOfRow},
        {"state", {.title = "STATE", .width = 8, .gap = 1, .leaves = 2}, textOfRow},
        {"unit", {.title = "UNIT", .width = 20, .gap = 1, .least = 10, .leaves = 8}, unitOfRow},
        {"name", {.title = "NAME", .width = 24, .gap = 1, .least = 10}, textOfRow},
        {"command", {.title = "COMMAND", .width = 30, .gap = 1, .least = 10}, commandOfRow},
    };
    return columns;
}

/// Text in the last column is as wide as it comes. Where there is only so much room, what the others leave of it is answered, so
/// that command lines, which are long, drive none of them out; 0 for any.
int lastColumn(std::vector<TableColumn>& columns, int room)
{
    constexpr int least = 20;
    if (columns.empty() || columns.back().align == Align::Right) {
        return 0;
    }
    columns.back().width = columns.back().least = columns.back().leaves = 0;
    int others = 0;
    for (const TableColumn& column : columns) {
        others += column.width + (column.width > 0 ? column.gap : 0);
    }
    return room > 0 ? std::max(room - others, least) : 0;
}

} // namespace

std::span<const ProcessWord> processWords() { return columnWords; }

const char* columnOfProcesses(std::string_view word)
{
    const auto* const found = std::find_if(columnWords.begin(), columnWords.end(),
        [word](const ProcessWord& each) { return each.word == word || each.column == word; });
    return found == columnWords.end() ? nullptr : found->column;
}

Lines processLines(const Value& answer, const std::vector<std::string>& columns, int room)
{
    const Value* rows = find(answer, "processes");
    const auto total = integer(answer, "total").value_or(0);
    if (!rows || !rows->is_array() || rows->empty()) {
        return {{{Style::Plain, total > 0 ? "no more processes" : "no such processes"}}};
    }
    std::vector<const ProcessCells*> shown;
    std::vector<TableColumn> places;
    for (const std::string& name : columns) {
        for (const ProcessCells& each : processCells()) {
            if (each.column == name) {
                shown.push_back(&each);
                places.push_back(each.place);
            }
        }
    }
    const int rest = lastColumn(places, room);
    TextTable table(std::move(places), room);
    for (const Value& row : *rows) {
        std::vector<TableCell> cells;
        for (const ProcessCells* each : shown) {
            const std::string cell = each->cell(row, each->column);
            const bool isCut = each == shown.back() && rest > 0 && displayWidth(cell) > rest;
            cells.emplace_back(isCut ? fitLeft(cell, rest) : cell);
        }
        table.add(std::move(cells));
    }
    Lines lines = table.lines();
    if (std::cmp_greater(total, rows->size())) {
        lines.push_back({{Style::Faint, fmt::format("and {} more", total - static_cast<std::int64_t>(rows->size()))}});
    }
    return lines;
}

} // namespace meridal
