// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <memory>

namespace meridal {

/// Tells somebody who counts the seconds that the main queue runs, at least twice in each `limit` (s). The main queue does it
/// itself: while a task there does not end, nothing is told, and who waits for it starts the daemon anew. It shares
/// wake-ups with other timers.
[[nodiscard]] std::unique_ptr<Timer> startWatchdog(Runtime& runtime, double limit, Task tell);

} // namespace meridal
