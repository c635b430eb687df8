// SPDX-License-Identifier: Apache-2.0
#include "client/screen/TextTable.h"

#include "base/Text.h"
#include "client/screen/Format.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <utility>

namespace meridal {

namespace {

constexpr int subjectColumns = 13;

int widthOf(const Line& line)
{
    int width = 0;
    for (const Span& span : line) {
        width += displayWidth(span.text);
    }
    return width;
}

void append(Line& line, Style style, const std::string& text)
{
    if (!line.empty() && line.back().style == style) {
        line.back().text += text;
    } else if (!text.empty()) {
        line.push_back({style, text});
    }
}

void appendCell(Line& line, const TableCell& cell, const TableColumn& column)
{
    const bool isDrawn = cell.spans.size() != 1; // no wider than its column
    for (const Span& span : cell.spans) {
        append(line, span.style,
            isDrawn || column.width == 0       ? span.text
                : column.align == Align::Right ? fitRight(span.text, column.width)
                                               : fitLeft(span.text, column.width));
    }
    append(line, Style::Plain, isDrawn ? fitLeft("", column.width - widthOf(cell.spans)) : "");
}

Line rowLine(const std::vector<TableColumn>& columns, const std::vector<TableCell>& cells)
{
    const auto isEmpty = [](const TableCell& cell) { return widthOf(cell.spans) == 0; };
    const auto count = static_cast<std::size_t>(cells.rend() - std::find_if_not(cells.rbegin(), cells.rend(), isEmpty));
    Line line;
    for (std::size_t index = 0; index < count; ++index) {
        if (index > 0) {
            const Style next = cells[index].spans.empty() ? Style::Plain : cells[index].spans.front().style;
            const auto gap = static_cast<std::size_t>(columns[index - 1].gap);
            append(line, line.back().style == next ? next : Style::Plain, std::string(gap, ' '));
        }
        appendCell(line, cells[index], columns[index]);
    }
    return line;
}

struct ShownColumn {
    TableColumn column;
    std::size_t place = 0; ///< in a row's cells
    int widest = 0;        ///< of what is in it
};

int missing(const std::vector<ShownColumn>& columns, int room)
{
    int width = 0;
    for (const auto& [column, place, widest] : columns) {
        width += column.width > 0 ? column.width + column.gap : widest;
    }
    return std::max(width - room, 0);
}

void giveWay(std::vector<ShownColumn>& columns, int room, bool mayCut)
{
    for (auto& [column, place, widest] : columns) {
        if (column.least > 0) {
            const int least = std::min(column.width, mayCut ? column.least : std::max(column.least, widest));
            column.width = std::max(column.width - missing(columns, room), least);
        }
    }
}

/// Leaves out the column that is missed least; false when none may go.
bool leaveOne(std::vector<ShownColumn>& columns)
{
    const auto rank = [](const ShownColumn& each) {
        return each.column.leaves > 0 ? each.column.leaves : std::numeric_limits<int>::max();
    };
    const auto leaving = std::min_element(columns.begin(), columns.end(),
        [&](const ShownColumn& first, const ShownColumn& second) { return rank(first) < rank(second); });
    if (leaving == columns.end() || leaving->column.leaves == 0) {
        return false;
    }
    columns.erase(leaving);
    return true;
}

void fit(std::vector<ShownColumn>& columns, int room)
{
    if (room == 0) {
        return;
    }
    giveWay(columns, room, false);
    while (missing(columns, room) > 0 && leaveOne(columns)) { }
    giveWay(columns, room, true);
}

} // namespace

void TextTable::add(std::vector<TableCell> cells) { rows_.push_back({std::move(cells), {}}); }

Lines TextTable::lines(Style titles) const
{
    std::vector<ShownColumn> shown;
    for (std::size_t place = 0; place < columns_.size(); ++place) {
        shown.push_back({columns_[place], place, widest(place)});
    }
    fit(shown, room_);
    std::vector<TableColumn> columns;
    std::vector<TableCell> heading;
    for (const ShownColumn& each : shown) {
        columns.push_back(each.column);
        heading.emplace_back(titles, each.column.title);
    }
    Lines lines;
    if (Line line = rowLine(columns, heading); !line.empty()) {
        lines.push_back(std::move(line));
    }
    for (const Row& row : rows_) {
        std::vector<TableCell> cells;
        for (const ShownColumn& each : shown) {
            cells.push_back(each.place < row.cells.size() ? row.cells[each.place] : TableCell(""));
        }
        lines.push_back(row.cells.empty() ? row.line : rowLine(columns, cells));
    }
    return lines;
}

/// How wide a column would have to be for nothing in it to be cut.
int TextTable::widest(std::size_t column) const
{
    int width = displayWidth(columns_[column].title);
    for (const Row& row : rows_) {
        width = std::max(width, column < row.cells.size() ? widthOf(row.cells[column].spans) : 0);
    }
    return width;
}

Line subjectLine(std::string_view label, Line words)
{
    words.insert(words.begin(), {Style::Title, fitLeft(label, subjectColumns)});
    return words;
}

Line cutLine(Line line, int columns)
{
    int left = columns;
    for (Span& span : line) {
        const int width = displayWidth(span.text);
        span.text = columns > 0 && width > left ? fitLeft(span.text, left) : span.text;
        left -= std::min(width, left);
    }
    return line;
}

Lines foldedLines(const Lines& lines, int columns)
{
    Lines folded;
    for (const Line& line : lines) {
        const bool isSubject =
            line.size() == 2 && line.front().style == Style::Title && displayWidth(line.front().text) == subjectColumns;
        if (columns <= 0 || widthOf(line) <= columns) {
            folded.push_back(line);
        } else if (isSubject || line.size() == 1) {
            const std::string& words = line.back().text;
            const std::size_t blanks = std::min(words.find_first_not_of(' '), words.size());
            const int indent = isSubject ? subjectColumns : static_cast<int>(blanks);
            Lines wrapped = wrappedLines(
                line.back().style, std::string_view(words).substr(isSubject ? 0 : blanks), indent, columns);
            wrapped.front().front() = isSubject ? line.front() : wrapped.front().front();
            appendLines(folded, wrapped);
        } else {
            Line words; // a word may be of several styles, but no line of these has such
            for (const Span& span : line) {
                if (!words.empty() && widthOf(words) + displayWidth(span.text) > columns) {
                    folded.push_back(std::exchange(words, {}));
                }
                const bool goesOn = words.empty() && span.text.starts_with(", ");
                words.push_back({span.style, goesOn ? span.text.substr(2) : span.text});
            }
            folded.push_back(std::move(words));
        }
    }
    return folded;
}

Lines wrappedLines(Style style, std::string_view words, int indent, int columns)
{
    const std::string margin(static_cast<std::size_t>(indent), ' ');
    Lines lines;
    std::string line;
    while (!words.empty()) {
        const std::size_t end = std::min(words.find(' '), words.size());
        const std::string_view word = words.substr(0, end);
        words.remove_prefix(std::min(end + 1, words.size()));
        if (!line.empty() && columns > 0 && indent + displayWidth(line) + 1 + displayWidth(word) > columns) {
            lines.push_back({{Style::Plain, margin}, {style, std::exchange(line, {})}});
        }
        line += (line.empty() ? "" : " ") + std::string(word);
    }
    lines.push_back({{Style::Plain, margin}, {style, std::move(line)}});
    return lines;
}

} // namespace meridal
