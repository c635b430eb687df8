// SPDX-License-Identifier: Apache-2.0
#include "daemon/Watchdog.h"

#include <utility>

namespace meridal {

std::unique_ptr<Timer> startWatchdog(Runtime& runtime, double limit, Task tell)
{
    const double interval = limit / 3;
    return runtime.startTimer(runtime.mainQueue(),
        {.first = interval, .interval = interval, .leeway = limit / 6, .onGrid = true}, std::move(tell));
}

} // namespace meridal
