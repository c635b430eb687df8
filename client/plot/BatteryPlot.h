// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/plot/Plot.h"

#include <string>

namespace meridal {

/// What to draw of the rows of battery.history, newest first: a line a battery, which stays at a value until the next
/// change, from the oldest row until that moment (s since 1970). Rows that make no sense are left out.
Plot batteryPlot(const Value& rows, const std::string& title, const std::string& unit, double until);

} // namespace meridal
