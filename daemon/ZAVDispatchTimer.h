// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <memory>

namespace meridal {

/// A repeating main-queue timer that can be started over. Its fires may come up to 0.2 s late, so that they share
/// wake-ups with others.
class ZAVDispatchTimer {
public:
    explicit ZAVDispatchTimer(Runtime& runtime) : runtime_(runtime) { }

    /// Fires after one interval (s) and then every interval, until cancelled or started anew. On the grid it fires first
    /// when other timers do, up to half an interval earlier or later.
    void startTimerWithInterval(double interval, Task block, bool onGrid = false);

    // Of the interface, and called by nothing here
    void cancelTimer() { timer_.reset(); }

private:
    Runtime& runtime_;
    std::unique_ptr<Timer> timer_;
};

} // namespace meridal
