// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/screen/StyledText.h"

#include <span>
#include <string>
#include <string_view>

namespace meridal {

/// One of those that share something.
struct ShareBar {
    std::string label; ///< any text
    double amount = 0;
    std::string words; ///< the amount for people; any text
};

/// A bar of so many columns for an amount, where the largest fills them. What is not nothing is seen.
std::string shareBar(double amount, double largest, int columns);

/// Bars as a picture that needs nothing else. `title` is any text.
std::string shareChartSvg(std::string_view title, std::span<const ShareBar> bars);

} // namespace meridal
