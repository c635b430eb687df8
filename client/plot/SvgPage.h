// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace meridal {

// What all pictures have in common, so that several of them beside each other look like one hand's work.

/// The rules for what stands in a picture, as a style sheet's text: `title`, `faint`, `grid`, `line`, `band`; light or dark as
/// the reader's system is.
extern const char* const svgRules;

/// The colour of the index-th of several things; they begin anew after the sixth.
const char* svgColour(std::size_t index);

/// A document around a drawing, or the element in a page of HTML that has the rules already. `title` is any text, and what
/// those hear who do not see it.
std::string svgDocument(double width, double height, std::string_view title, std::string_view drawing);
std::string svgElement(double width, double height, std::string_view title, std::string_view drawing);

/// A square of a thing's colour, and what it is; both texts any.
std::string svgLegend(double x, double base, std::size_t colour, std::string_view words);

} // namespace meridal
