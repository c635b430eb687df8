#pragma once

#include "client/plot/Plot.h"

#include <string>

namespace meridal {

/// The plot as an SVG document that a browser opens: no script, nothing loaded from elsewhere, light or dark as the
/// reader's system is. Gaps are gaps.
std::string plotSvg(const Plot& plot);

} // namespace meridal
