// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/ProcessSource.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

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
    std::uint64_t cpuTime = 0; ///< units of the time base
    std::uint64_t cpuUser = 0; ///< as in ProcessRecord, as are the next
    std::uint64_t childCpuTime = 0;
    std::uint64_t childCpuUser = 0;
    std::uint64_t residentSize = 0;  ///< bytes
    std::uint64_t swapped = 0;       ///< bytes out of memory: ProcessRecord::compressed
    std::uint64_t diskReadTotal = 0; ///< bytes
    std::uint64_t diskWriteTotal = 0;
    std::uint64_t idleWakeups = 0;
    double lastUpdateCPU = 0;
    double diskUpdateTime = 0;
    double wakeupsTime = 0;
    ProcessFields read = ProcessFields::None; ///< the groups of which there is a reading
};

/// Derived: what people see. Absent while it is not known: of a rate until there are two readings, and for the interval in
/// which a counter started over.
struct ProcessFigures {
    std::optional<double> cpu;             ///< percent of one core, so possibly above 100
    std::optional<double> memory;          ///< bytes
    std::optional<double> memoryFootprint; ///< bytes
    std::optional<double> powerScore;      ///< energy score, averaged over half a minute
    std::optional<double> diskRead;        ///< bytes per second
    std::optional<double> diskWrite;       ///< bytes per second
    std::optional<double> wakeups;         ///< per second
    std::optional<double> networkDownload; ///< bytes in the current interval
    std::optional<double> networkUpload;   ///< bytes in the current interval
};

/// When a figure was last above 0, s since 1970; 0 = never.
struct ProcessActivity {
    double diskReadTime = 0;
    double diskWriteTime = 0;
    double networkDownloadTime = 0;
    double networkUploadTime = 0;
};

/// Averaged: what the energy score of half a minute is made of.
struct ProcessEnergy {
    /// Energy score for each time in a second that it wakes an idle package: as much as 500 us of CPU time.
    static constexpr double scoreOfWakeup = 0.05;
    /// A score that counts. Most processes never have one.
    struct Score {
        double time = 0; ///< monotonic s
        std::uint32_t number = 0;
        float power = 0;
    };
    std::optional<double> power; ///< score of the latest interval
    std::vector<Score> scores;   ///< oldest first
};

/// A figure that groups add up and that lists rank by.
struct ProcessFigure {
    std::optional<double> ProcessFigures::*value = nullptr;
    double ProcessActivity::*lastActive = nullptr; ///< ranks those that are idle; null: nothing does
    bool ofEnded = false;                          ///< who has ended since the latest pass has it, too

    static const ProcessFigure cpu, memory, memoryFootprint, power, diskRead, diskWrite, download, upload;
};

inline constexpr ProcessFigure ProcessFigure::cpu{&ProcessFigures::cpu};
inline constexpr ProcessFigure ProcessFigure::memory{&ProcessFigures::memory};
inline constexpr ProcessFigure ProcessFigure::memoryFootprint{&ProcessFigures::memoryFootprint};
inline constexpr ProcessFigure ProcessFigure::power{&ProcessFigures::powerScore};
inline constexpr ProcessFigure ProcessFigure::diskRead{&ProcessFigures::diskRead, &ProcessActivity::diskReadTime};
inline constexpr ProcessFigure ProcessFigure::diskWrite{&ProcessFigures::diskWrite, &ProcessActivity::diskWriteTime};
inline constexpr ProcessFigure ProcessFigure::download{
    &ProcessFigures::networkDownload, &ProcessActivity::networkDownloadTime, true};
inline constexpr ProcessFigure ProcessFigure::upload{
    &ProcessFigures::networkUpload, &ProcessActivity::networkUploadTime, true};

/// Length of a list that ends with the last process.
constexpr std::int32_t unlimitedProcesses = std::numeric_limits<std::int32_t>::max();

} // namespace meridal
