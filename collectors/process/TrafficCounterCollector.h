#pragma once

#include "base/Result.h"
#include "collectors/process/TrafficBatch.h"
#include "platform/host/TrafficCounters.h"

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

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

    /// The fold: every process's traffic becomes what was counted for it since the last one. That of a process which has ended
    /// meanwhile counts for its nearest ancestor that is there, unless that is the first of all processes.
    void process();

    const TrafficAccount& latest() const { return latest_; } ///< of the latest fold
    const TrafficAccount& total() const { return total_; }   ///< of all folds
    /// Of processes in networks of their own, since the first start: not part of the account, whose sum is what the
    /// interfaces of this network carried.
    const TrafficShare& elsewhere() const { return elsewhere_; }

private:
    void fold(const TrafficCount& count);
    ProcessStatCollectorItem* nearestOf(const TrafficCount& count);
    TrafficShare takeRest(const TrafficReading& reading);

    Context& context_;
    ProcessStatCollector& processes_;
    std::unique_ptr<TrafficCounters::Counting> counting_;
    std::unordered_map<std::int32_t, std::int32_t> parents_; ///< by pid, of one reading
    TrafficAccount latest_;
    TrafficAccount total_;
    TrafficShare elsewhere_;
    TrafficShare rest_;  ///< interfaces less sockets since the start: the moments differ, so it may swing
    TrafficShare told_;  ///< the most that `rest_` has been, which was told as the kernel's
    TrafficShare known_; ///< what sockets had in the reading before
};

} // namespace meridal
