// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <functional>

namespace meridal {

/// Runs tasks that may hang in the kernel for good, away from the caller, who waits for them only so long. A task that
/// hangs holds up no other. Made and used on one thread.
class SlowWork {
public:
    virtual ~SlowWork() = default;
    /// Runs the task later, on another thread, as a rule after those posted before. What it holds must not need the
    /// poster: it may outlive this object.
    virtual void post(Task task) = 0;
    /// Waits until the condition holds, looking again whenever a task has ended. False when it still does not after so
    /// many seconds.
    virtual bool wait(const std::function<bool()>& condition, double seconds) = 0;
};

} // namespace meridal
