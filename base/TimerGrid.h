// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

namespace meridal {

/// When a timer that is started now fires first, in s of the clock that its runtime's timers run on, like `now`. On the
/// grid that is a whole multiple of 2 s, or of the timer's interval if that is less: the nearest one to what was asked
/// for, but not before half of the wait. So timers of 2, 6 and 30 s share all their wake-ups, whenever they were started.
double firstFire(double now, const TimerSchedule& schedule);

} // namespace meridal
