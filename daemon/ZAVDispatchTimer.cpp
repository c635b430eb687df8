// SPDX-License-Identifier: Apache-2.0
#include "daemon/ZAVDispatchTimer.h"

#include <utility>

namespace meridal {

void ZAVDispatchTimer::startTimerWithInterval(double interval, Task block, bool onGrid)
{
    constexpr double leeway = 0.2;
    timer_ = runtime_.startTimer(runtime_.mainQueue(),
        {.first = interval, .interval = interval, .leeway = leeway, .onGrid = onGrid}, std::move(block));
}

} // namespace meridal
