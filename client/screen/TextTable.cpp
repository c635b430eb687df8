// SPDX-License-Identifier: Apache-2.0
#include "client/screen/TextTable.h"

#include "base/Text.h"
#include "client/screen/Format.h"

#include <algorithm>
#include <cstddef>

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

} // namespace

void TextTable::add(std::vector<TableCell> cells) { rows_.push_back({std::move(cells), {}}); }

Lines TextTable::lines(Style titles) const
{
    const std::vector<TableColumn> columns = fitted();
    Lines lines;
    std::vector<TableCell> heading;
    for (const TableColumn& column : columns) {
        heading.emplace_back(titles, column.title);
    }
    if (Line line = rowLine(columns, heading); !line.empty()) {
        lines.push_back(std::move(line));
    }
    for (const Row& row : rows_) {
        lines.push_back(row.cells.empty() ? row.line : rowLine(columns, row.cells));
    }
    return lines;
}

/// The columns, the one that gives way as wide as there is room for.
std::vector<TableColumn> TextTable::fitted() const
{
    std::vector<TableColumn> columns = columns_;
    int width = 0;
    for (const TableColumn& column : columns) {
        width += column.width + column.gap;
    }
    int widestEnd = 0;
    for (const Row& row : rows_) {
        const bool hasEnd = row.cells.size() == columns.size() && columns.back().width == 0;
        widestEnd = std::max(widestEnd, hasEnd ? widthOf(row.cells.back().spans) : 0);
    }
    const int missing = room_ > 0 ? width + widestEnd - room_ : 0;
    for (TableColumn& column : columns) {
        if (column.least > 0 && missing > 0 && column.width - missing >= column.least) {
            column.width -= missing;
            break;
        }
    }
    return columns;
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

} // namespace meridal
