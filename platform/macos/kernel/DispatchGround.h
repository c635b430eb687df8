// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <memory>

namespace meridal {

/// What DispatchRuntime asks of a system beyond libdispatch: who serves the main dispatch queue, what surrounds a task,
/// and the clocks. Thread-safe but for serve().
class DispatchGround {
public:
    virtual ~DispatchGround() = default;
    /// Serves the main dispatch queue on the main thread until leave(). May return without it.
    virtual void serve() = 0;
    /// Called on the main dispatch queue. What serve() took out of the queue together with the caller still runs.
    virtual void leave() = 0;
    /// Runs the task and frees what it leaves behind.
    virtual void perform(const Task& task) const = 0;
    /// s; goes on while the machine sleeps.
    virtual double continuousTime() const = 0;
    /// s; rests while the machine sleeps. The clock of DISPATCH_TIME_NOW.
    virtual double uptime() const = 0;
};

/// The main thread's run loop, on which distributed notifications and the I/O registry's sources live, too; an
/// autorelease pool for each task; mach_continuous_time and mach_absolute_time.
std::unique_ptr<DispatchGround> makeRunLoopGround();

} // namespace meridal
