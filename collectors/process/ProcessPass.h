#pragma once

#include "platform/host/ProcessSource.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace meridal {

/// How many passes back the figures of a process are remembered.
constexpr std::uint16_t processHistoryRows = 300;

/// When the recent passes took place: once for all processes, whose rows only know the number of their pass.
class PassTimes {
public:
    /// Notes a pass at this wall time (s since 1970) and this time of the clock that cannot step (s).
    void push(double wallTime, double monotonicTime)
    {
        ++newest_;
        times_[newest_ % processHistoryRows] = {wallTime, monotonicTime};
    }
    /// Number of the newest pass; the first one is 1, 0 = none yet.
    std::uint32_t newest() const { return newest_; }
    /// When a pass of the last processHistoryRows took place.
    double wallTime(std::uint32_t pass) const { return times_[pass % processHistoryRows].wall; }
    double monotonicTime(std::uint32_t pass) const { return times_[pass % processHistoryRows].monotonic; }

private:
    struct Moment {
        double wall = 0;
        double monotonic = 0;
    };
    std::array<Moment, processHistoryRows> times_;
    std::uint32_t newest_ = 0;
};

/// What is the same for every process in one pass of the collector. One reading of each clock serves them all.
struct ProcessPass {
    std::uint32_t number = 0;                   ///< of all passes, from 1
    double wallTime = 0;                        ///< s since 1970, for labels
    double monotonicTime = 0;                   ///< s, for every division
    ProcessFields wanted = ProcessFields::None; ///< the groups that were asked for
    double timeBase = 0;                        ///< units of CPU time per second; 0 = unknown
    /// s. A CPU interval shorter than this says nothing: where counters move in ticks of 10 ms, one tick within a
    /// hundredth of a second would show as 100 %, and a tick that falls between two close readings as 1000 %.
    double shortestCPUInterval = 0;
    bool footprintFromKernel = true;
    std::uint32_t historyPass = 0;  ///< number in PassTimes under which rows are kept; 0 = this pass keeps none
    std::uint32_t averagedFrom = 0; ///< the oldest pass in PassTimes that an averaged energy score takes in
};

/// What items share with their collector between passes.
struct ProcessShared {
    PassTimes times;
    double tbfrequency = 1;          ///< units of CPU time per second
    bool sharingUseHeirachy = false; ///< totals take in the group
};

} // namespace meridal
