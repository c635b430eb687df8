// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/OptionalDouble.h"
#include "platform/host/ProcessSource.h"

#include <array>
#include <cstdint>
#include <limits>

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
    double scoreOfCpu = 1;         ///< energy score for each percent of one core
    std::uint32_t scoreNumber = 0; ///< counts the passes that energy scores are averaged over
};

/// Raw: cumulative counters as they were read last, and when (s of the clock that cannot step).
struct ProcessCounters {
    std::uint64_t cpuTime = 0;       ///< units of the time base
    std::uint64_t cpuUser = 0;       ///< as in ProcessRecord
    std::uint64_t residentSize = 0;  ///< bytes
    std::uint64_t swapped = 0;       ///< bytes out of memory: ProcessRecord::compressed
    std::uint64_t diskReadTotal = 0; ///< bytes
    std::uint64_t diskWriteTotal = 0;
    std::uint64_t idleWakeups = 0;
    double lastUpdateCPU = 0;
    double diskUpdateTime = 0;
    double wakeupsTime = 0;
};

/// What children have used that a process has waited for. Most have none.
struct ChildCounters {
    std::uint64_t cpuTime = 0; ///< as in ProcessRecord
    std::uint64_t cpuUser = 0;
};

/// Derived: what people see. Absent while it is not known: of a rate until there are two readings, and for the interval in
/// which a counter started over.
struct ProcessFigures {
    OptionalDouble cpu;             ///< percent of one core, so possibly above 100
    OptionalDouble memory;          ///< bytes
    OptionalDouble memoryFootprint; ///< bytes
    OptionalDouble wakeups;         ///< per second
};

/// Derived as well, and 0 for most processes since they were first seen: of those only is known whether that is so.
struct ProcessActivity {
    OptionalDouble diskRead;        ///< bytes per second
    OptionalDouble diskWrite;       ///< bytes per second
    OptionalDouble networkDownload; ///< bytes in the current interval
    OptionalDouble networkUpload;   ///< bytes in the current interval
    OptionalDouble powerScore;      ///< energy score, averaged over half a minute
    double diskReadTime = 0;        ///< when a figure was last above 0, s since 1970, as are the next; 0 = never
    double diskWriteTime = 0;
    double networkDownloadTime = 0;
    double networkUploadTime = 0;
};

/// Bits of what is known of those.
enum KnownActivity : std::uint8_t { KnowsDisk = 1, KnowsTraffic = 2, KnowsScore = 4, KnowsAll = 7 };

/// Of those who never were active, by what is known.
inline constexpr std::array<ProcessActivity, KnowsAll + 1> idleActivities = [] {
    std::array<ProcessActivity, KnowsAll + 1> all;
    for (unsigned known = 0; known < all.size(); ++known) {
        const auto figure = [known](unsigned bit) { return (known & bit) != 0 ? OptionalDouble(0) : OptionalDouble(); };
        all[known].diskRead = all[known].diskWrite = figure(KnowsDisk);
        all[known].networkDownload = all[known].networkUpload = figure(KnowsTraffic);
        all[known].powerScore = figure(KnowsScore);
    }
    return all;
}();

/// An energy score that counts in the average of half a minute. Most processes never have one.
struct ProcessScore {
    /// Of each time in a second that an idle package is woken: as much as 500 us of CPU time.
    static constexpr double ofWakeup = 0.05;

    double time = 0; ///< monotonic s
    std::uint32_t number = 0;
    float power = 0;
};

/// A figure that groups add up and that lists rank by.
struct ProcessFigure {
    OptionalDouble ProcessFigures::*value = nullptr;       ///< where it is; else
    OptionalDouble ProcessActivity::*ofActivity = nullptr; ///< there
    double ProcessActivity::*lastActive = nullptr;         ///< ranks those that are idle; null: nothing does
    bool ofEnded = false;                                  ///< who has ended since the latest pass has it, too

    static const ProcessFigure cpu, memory, memoryFootprint, power, diskRead, diskWrite, download, upload;
};

inline constexpr ProcessFigure ProcessFigure::cpu{&ProcessFigures::cpu};
inline constexpr ProcessFigure ProcessFigure::memory{&ProcessFigures::memory};
inline constexpr ProcessFigure ProcessFigure::memoryFootprint{&ProcessFigures::memoryFootprint};
inline constexpr ProcessFigure ProcessFigure::power{nullptr, &ProcessActivity::powerScore};
inline constexpr ProcessFigure ProcessFigure::diskRead{
    nullptr, &ProcessActivity::diskRead, &ProcessActivity::diskReadTime};
inline constexpr ProcessFigure ProcessFigure::diskWrite{
    nullptr, &ProcessActivity::diskWrite, &ProcessActivity::diskWriteTime};
inline constexpr ProcessFigure ProcessFigure::download{
    nullptr, &ProcessActivity::networkDownload, &ProcessActivity::networkDownloadTime, true};
inline constexpr ProcessFigure ProcessFigure::upload{
    nullptr, &ProcessActivity::networkUpload, &ProcessActivity::networkUploadTime, true};

/// Length of a list that ends with the last process.
constexpr std::int32_t unlimitedProcesses = std::numeric_limits<std::int32_t>::max();

} // namespace meridal
