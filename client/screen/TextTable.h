// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/screen/StyledText.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

/// What a table shows in one place: printable text, mostly of one style.
struct TableCell {
    TableCell(const char* text) : TableCell(std::string(text)) { }
    TableCell(std::string text) : spans{{Style::Plain, std::move(text)}} { }
    TableCell(Style style, std::string text) : spans{{style, std::move(text)}} { }
    TableCell(Line drawn) : spans(std::move(drawn)) { }

    Line spans;
};

enum class Align : std::uint8_t { Left, Right };

/// How wide everything in one column is.
struct TableColumn {
    std::string title;
    int width = 0; ///< 0: the last one, as wide as it comes
    Align align = Align::Left;
    int gap = 0;    ///< blanks behind it
    int least = 0;  ///< how far it gives way where there is too little room; 0: not at all
    int leaves = 0; ///< where that is not enough it is left out, the lowest number first; 0: never
};

/// Text in columns that line up. What is too long for its column is cut, and marked so.
class TextTable {
public:
    /// `room` is the width that there is, 0 for any. Columns give way first as far as nothing in them is cut, then some are
    /// left out, then they give way as far as they can. Where even that does not fit it will wrap.
    explicit TextTable(std::vector<TableColumn> columns, int room = 0) : columns_(std::move(columns)), room_(room) { }

    /// One cell a column; empty ones at the end may be left out.
    void add(std::vector<TableCell> cells);
    /// A line between the rows that keeps to no column.
    void addLine(Line line) { rows_.push_back({{}, std::move(line)}); }
    /// With the titles above, unless no column has one.
    Lines lines(Style titles = Style::Heading) const;

private:
    struct Row {
        std::vector<TableCell> cells;
        Line line; ///< instead, where there are no cells
    };

    int widest(std::size_t column) const;

    std::vector<TableColumn> columns_;
    int room_;
    std::vector<Row> rows_;
};

/// "label        words": what a person looks for, and what there is to say.
Line subjectLine(std::string_view label, Line words);

/// A line cut to so many columns; 0 leaves it whole.
Line cutLine(Line line, int columns);

/// Lines that are wider than so many columns go on below: those of subjectLine() behind their label, others where a word ends.
Lines foldedLines(const Lines& lines, int columns);

/// Words on as many lines as they need behind an indentation; 0 columns: on one.
Lines wrappedLines(Style style, std::string_view words, int indent, int columns);

} // namespace meridal
