// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace meridal {

class BatteryStatCollectorItem;

/// What some batteries hold together at one moment. A figure that one of them does not tell has no sum.
struct BatteryLevel {
    std::set<std::string> keys;
    std::optional<double> charge; ///< %, as the system shows it; of several weighed by what each holds when full
    /// %, as their controllers count; as above where one does not. Systems show whole percents.
    std::optional<double> exactCharge;
    std::optional<double> energy; ///< mWh
    std::optional<double> power;  ///< W; negative while they are drained
    bool onBattery = false;       ///< one of them gives the power, or is drained beside an adapter that is too weak
    bool moves = false;           ///< one of them is drained or charged
};

/// Absent without a battery.
std::optional<BatteryLevel> batteryLevel(const std::vector<const BatteryStatCollectorItem*>& batteries);

} // namespace meridal
