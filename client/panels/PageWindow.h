// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/screen/StyledText.h"

#include <optional>

namespace meridal {

/// The part of a page that is shown: headings stay, the chosen line is in sight and stands out.
class PageWindow {
public:
    /// `headings` lines at the top always stay; `chosen` is a place among all lines. Sizes are in terminal cells.
    Lines cut(const Lines& page, int headings, std::optional<int> chosen, int rows, int columns);
    /// Which line of the page the latest cut shows in a row.
    std::optional<int> lineAt(int row) const;

private:
    int headings_ = 0;
    int first_ = 0; ///< the first line that is shown below the headings
    int shown_ = 0; ///< lines
};

/// A line as that of the chosen row: as wide as the screen, and in one style.
Line chosenLine(const Line& line, int columns);

} // namespace meridal
