// SPDX-License-Identifier: Apache-2.0
#include "base/TimerGrid.h"

#include <algorithm>
#include <cmath>

namespace meridal {

namespace {
constexpr double gridStep = 2; // s; of what the daemon does most often all the time
}

double firstFire(double now, const TimerSchedule& schedule)
{
    const double wait = std::max(schedule.first, 0.0);
    if (!schedule.onGrid) {
        return now + wait;
    }
    const double step = schedule.interval > 0 ? std::min(gridStep, schedule.interval) : gridStep;
    const double nearest = std::ceil((now + wait) / step - 0.5) * step; // the earlier one of two
    return nearest < now + wait / 2 || nearest <= now ? nearest + step : nearest;
}

} // namespace meridal
