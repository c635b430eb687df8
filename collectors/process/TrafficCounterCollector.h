// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "collectors/process/TrafficBatch.h"
#include "platform/host/TrafficCounters.h"

#include <cstdint>
#include <memory>
#include <string>

namespace meridal {

class ProcessStatCollector;
class ProcessStatCollectorItem;
struct Context;

/// Per-process network traffic as the kernel itself counts it, folded into the process items as PacketStatCollector does it
/// with what was captured. Main queue only.
class TrafficCounterCollector {
public:
    TrafficCounterCollector(Context& context, ProcessStatCollector& processes);
    ~TrafficCounterCollector();
    TrafficCounterCollector(const TrafficCounterCollector&) = delete;
    TrafficCounterCollector& operator=(const TrafficCounterCollector&) = delete;

    /// The process-wide instance, on Context::shared() and the shared process collector.
    static TrafficCounterCollector& sharedTrafficCounterCollector();

    Result<void> start();
    void stop();
    bool isCounting() const { return counting_ != nullptr; }
    /// How it is done; empty while it is not.
    std::string method() const { return counting_ ? counting_->method() : std::string(); }

    /// The fold: every process's traffic becomes what was counted for it since the last one. Whoever has ended meanwhile
    /// stands in the lists until the next pass.
    void process();

    const TrafficAccount& latest() const { return latest_; } ///< of the latest fold
    /// Of all folds. What was told as the kernel's and turned out to be a process's is a process's here.
    const TrafficAccount& total() const { return total_; }
    /// Of processes in networks of their own, since the first start: not part of the account, whose sum is what the
    /// interfaces of this network carried.
    const TrafficShare& elsewhere() const { return elsewhere_; }

private:
    void fold(const TrafficCount& count);
    ProcessStatCollectorItem* itemOf(const TrafficCount& count);
    TrafficShare takeRest(const TrafficReading& reading);

    Context& context_;
    ProcessStatCollector& processes_;
    std::unique_ptr<TrafficCounters::Counting> counting_;
    TrafficAccount latest_;
    TrafficAccount total_;
    TrafficShare elsewhere_;
    TrafficShare rest_;    ///< interfaces less sockets since the start: the moments differ, so it may swing
    TrafficShare told_;    ///< the most that `rest_` has been, which was told as the kernel's
    TrafficShare known_;   ///< what sockets had in the reading before
    TrafficShare waiting_; ///< what waited for a process at the reading before
};

} // namespace meridal
