// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/screen/StyledText.h"
#include "client/views/ApplicationRates.h"

#include <vector>

namespace meridal {

/// What is known of the machine at a moment; null while it is not.
struct OverviewFigures {
    Value machine;                             ///< as machine.state
    Value sensors;                             ///< as sensors.list
    Value battery;                             ///< as battery.state
    std::vector<ApplicationRate> applications; ///< largest first, by processor time
};

/// The whole machine at a glance, in so many rows: processors, memory, pressure, disks, network, sensors, battery, and as many of the
/// largest applications as are left room for. What matters least is left out where there is too little.
Lines overviewLines(const OverviewFigures& figures, int rows, int columns);

} // namespace meridal
