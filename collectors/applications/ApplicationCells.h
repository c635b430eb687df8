// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/process/GroupSums.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace meridal {

/// The sums of a row, in the order of its columns.
enum class SumColumn : int {
    CpuUser, ///< ms
    CpuSystem,
    BytesRead,
    BytesWritten,
    BytesReceived,
    BytesSent,
    Wakeups,
    EnergyScore, ///< score times ms
    Millijoules,
    Started,
    Ended,
};
constexpr std::array<std::string_view, 11> sumColumns = {"cpuuser", "cpusystem", "bytesread", "byteswritten",
    "bytesreceived", "bytessent", "wakeups", "energyscore", "millijoules", "started", "ended"};

/// GroupSums in the whole numbers that rows hold: those add up exactly, and a zero takes no byte of a row.
struct WholeSums {
    std::array<std::int64_t, sumColumns.size()> figures = {};
    bool knowsJoules = false;

    static WholeSums of(const GroupSums& sums);
    GroupSums groupSums() const;
    std::int64_t& operator[](SumColumn column) { return figures[static_cast<std::size_t>(column)]; }
    std::int64_t operator[](SumColumn column) const { return figures[static_cast<std::size_t>(column)]; }
    WholeSums& operator+=(const WholeSums& other);
};

/// What the record knows an application by, shared by all periods that have something of it.
struct Application {
    static constexpr std::int64_t nobody = -1;

    std::string identity;
    std::int64_t owner = nobody;
    std::string name;
    GroupKind kind = GroupKind::Application;
};
using ApplicationPtr = std::shared_ptr<Application>;

/// What one application used in one period, and held.
struct ApplicationCell {
    WholeSums sums;
    double byteSeconds = 0; ///< of memory
    double seconds = 0;     ///< for which it was there
    std::int64_t memoryPeak = 0;
    std::int64_t processesPeak = 0;

    ApplicationCell& operator+=(const ApplicationCell& other);
    double meanMemory() const { return seconds > 0 ? byteSeconds / seconds : 0; }
};

using ApplicationCells = std::unordered_map<ApplicationPtr, ApplicationCell>;

/// By what applications are the largest.
enum class RankedBy : int { Cpu, Memory, Disk, Network, Energy };
constexpr std::array<RankedBy, 5> rankings = {
    RankedBy::Cpu, RankedBy::Memory, RankedBy::Disk, RankedBy::Network, RankedBy::Energy};
double rankOf(const WholeSums& sums, double meanMemory, RankedBy ranking);

/// Leaves so many that are the largest by each figure, and the kernel; the others become part of `other`, so that the sums
/// of all stay what they were.
void foldSmall(ApplicationCells& cells, std::size_t largest, const ApplicationPtr& other);

} // namespace meridal
