// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/plot/SvgBars.h"
#include "client/screen/StyledText.h"

#include <string>
#include <vector>

namespace meridal {

/// One line of a chart of amounts that went out and came in.
struct AmountBar {
    std::string label; ///< printable
    double upload = 0; ///< bytes
    double download = 0;
};

/// The amounts as text, one line each, under a heading: label, a bar of at most so many columns divided into download and upload,
/// both figures and their sum. All bars share one scale. `room` is the width that there is, 0 for any.
Lines barChartLines(const std::string& heading, const std::vector<AmountBar>& bars, int barColumns, int room = 0);

/// The same for a picture.
SvgBars barPicture(std::string title, const std::vector<AmountBar>& bars);

} // namespace meridal
