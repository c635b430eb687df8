// SPDX-License-Identifier: Apache-2.0
#include "client/panels/PageWindow.h"

#include "client/screen/Format.h"

#include <algorithm>

namespace meridal {

Lines PageWindow::cut(const Lines& page, int headings, std::optional<int> chosen, int rows, int columns)
{
    const auto count = static_cast<int>(page.size());
    headings_ = std::min({headings, count, std::max(rows - 1, 0)});
    const int room = std::max(rows - headings_, 1);
    if (chosen) {
        first_ = std::clamp(first_, *chosen - room + 1, *chosen);
    }
    first_ = std::clamp(first_, headings_, std::max(count - room, headings_));
    Lines lines;
    for (int line = 0; line < count; ++line) {
        if (line < headings_ || (line >= first_ && line < first_ + room)) {
            const Line& each = page[static_cast<std::size_t>(line)];
            lines.push_back(line == chosen ? chosenLine(each, columns) : each);
        }
    }
    shown_ = static_cast<int>(lines.size());
    return lines;
}

std::optional<int> PageWindow::lineAt(int row) const
{
    if (row < 0 || row >= shown_) {
        return std::nullopt;
    }
    return row < headings_ ? row : first_ + row - headings_;
}

Line chosenLine(const Line& line, int columns) { return {{Style::Chosen, fitLeft(plainText(line), columns)}}; }

} // namespace meridal
