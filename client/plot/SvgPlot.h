// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/plot/Plot.h"

#include <span>
#include <string>

namespace meridal {

/// The plot as an SVG document that a browser opens: no script, nothing loaded from elsewhere, light or dark as the
/// reader's system is. Gaps are gaps, bands a light ground below the lines.
std::string plotSvg(const Plot& plot);

/// Several plots in one picture, one below the other.
std::string plotsSvg(std::span<const Plot> plots);
/// The same for a page of HTML that has the rules of pictures (SvgPage.h).
std::string plotsElement(std::span<const Plot> plots);

} // namespace meridal
