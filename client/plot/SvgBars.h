// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// One bar: amounts one behind the other.
struct SvgBar {
    std::string label;         ///< any text
    std::vector<double> parts; ///< finite; below 0 is nothing
    std::string words;         ///< the amounts for people; any text
};

/// Amounts beside each other. Texts are any.
struct SvgBars {
    std::string title;
    std::string unit;               ///< of the amounts; "B" and "s" are told in the multiple that suits them
    std::vector<std::string> parts; ///< what the parts are, for the legend; empty where there is one
    std::vector<SvgBar> bars;
};

/// The bars as lying columns over an axis, with title and legend: a picture that needs nothing else.
std::string barsSvg(const SvgBars& chart);
/// The same for a page of HTML that has the rules of pictures (SvgPage.h).
std::string barsElement(const SvgBars& chart);

} // namespace meridal
