// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/plot/Plot.h"
#include "client/screen/StyledText.h"

#include <vector>

namespace meridal {

/// The daemon's answer about batteries for people; with its entry "history" also what was recorded, as a plot of so many
/// columns and as a list, newest first. Times are local. One line where there is no battery at all.
Lines batteryLines(const Value& answer, int columns = 80);

/// How health and cycles went, by the answer's entry "history": the plots of it alone.
std::vector<Plot> batteryPlots(const Value& answer, double now);

} // namespace meridal
