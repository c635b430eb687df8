// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/plot/Plot.h"

#include <span>
#include <string>

namespace meridal {

/// Points as one line of so many blocks, each the mean of its share of the time, between the lowest and the highest of
/// them; a blank where nothing was measured. Empty for no points.
std::string sparkline(std::span<const PlotPoint> points, double from, double until, int columns);

} // namespace meridal
