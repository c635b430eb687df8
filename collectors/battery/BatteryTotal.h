// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <optional>
#include <vector>

namespace meridal {

class BatteryStatCollectorItem;

/// What several batteries of one machine come to together: "percentage", "state", "time" and "power", as each of them has
/// these. Machines drain and charge them one after another as a rule, so no single one's time is the machine's. Absent for
/// fewer than two. A percentage or a power that one of them does not tell has no sum.
std::optional<Dictionary> batteryTotal(const std::vector<const BatteryStatCollectorItem*>& batteries);

} // namespace meridal
