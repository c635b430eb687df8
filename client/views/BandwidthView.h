// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/plot/BarChart.h"

#include <string>
#include <vector>

namespace meridal {

/// The rows of bandwidth.totals as bars: times in their order, things by size. `by` is what they were added up by.
std::vector<AmountBar> bandwidthBars(const Value& totals, const std::string& by);

} // namespace meridal
