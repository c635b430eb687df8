// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/AsioMainLoop.h"
#include "base/DeadlineTable.h"
#include "base/TaskSlot.h"

#include <asio/steady_timer.hpp>

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace meridal {

/// Seconds of CLOCK_MONOTONIC.
double steadySeconds();

/// All timers of AsioRuntime on one system timer. Any thread may start and cancel; the system timer itself belongs to
/// the main loop.
class AsioTimers {
public:
    struct Entry;
    using Handle = std::shared_ptr<Entry>;

    explicit AsioTimers(AsioMainLoop& loop) : loop_(loop), wake_(loop.context()) { }

    Handle start(std::weak_ptr<Queue> queue, TimerSchedule schedule, Task task);
    void cancel(const Handle& timer);
    /// Drops all.
    void close();

private:
    using Id = DeadlineTable::Id;

    void sleep();
    void wake();
    std::vector<Handle> takeFires(double now);
    void post(const Handle& timer);

    AsioMainLoop& loop_;
    asio::steady_timer wake_;      ///< main loop only
    std::mutex mutex_;             ///< guards all below
    std::optional<double> wakeAt_; ///< when the system timer ends, s; empty while it does not run
    DeadlineTable table_;
    std::map<Id, Handle> waiting_;
    Id lastId_ = 0;
};

} // namespace meridal
