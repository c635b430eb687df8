#pragma once

#include "platform/host/ProcessSource.h"

#include <cstdint>

namespace meridal {

/// What is the same for every process in one pass of the collector. One reading of each clock serves them all.
struct ProcessPass {
    std::uint32_t number = 0;                   ///< of all passes, from 1
    double wallTime = 0;                        ///< s since 1970, for labels
    double monotonicTime = 0;                   ///< s, for every division
    ProcessFields wanted = ProcessFields::None; ///< the groups that were asked for
    double timeBase = 0;                        ///< units of CPU time per second; 0 = unknown
    /// s. An interval shorter than this says nothing: where counters move in ticks of 10 ms, one tick within a hundredth of
    /// a second would show as 100 %, and a tick that falls between two close readings as 1000 %.
    double shortestInterval = 0;
    bool footprintFromKernel = true;
    std::uint32_t scoreNumber = 0; ///< counts the passes of which energy scores are remembered
    bool keepsScores = false;      ///< this is one of them
};

/// What items share with their collector between passes.
struct ProcessShared {
    double tbfrequency = 1;          ///< units of CPU time per second
    bool sharingUseHeirachy = false; ///< totals take in the group
};

} // namespace meridal
