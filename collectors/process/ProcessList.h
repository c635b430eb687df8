#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

namespace meridal {

class ProcessStatCollectorItem;

/// The lists that clients may want; bits of ProcessStatCollector::updateMask(). The number is also the list's "type".
enum class ProcessList : std::uint32_t { Cpu = 1, Memory = 2, Disk = 4, Network = 8, Energy = 16 };

constexpr std::uint32_t mask(ProcessList list) { return static_cast<std::uint32_t>(list); }
constexpr bool holds(std::uint32_t updateMask, ProcessList list) { return (updateMask & mask(list)) != 0; }

/// A figure that processes have, that groups add up and that lists rank by.
enum class ProcessFigure : std::uint8_t {
    Cpu,             ///< percent of one core
    Memory,          ///< bytes
    MemoryFootprint, ///< bytes
    Power,           ///< averaged energy score
    DiskRead,        ///< bytes per second
    DiskWrite,       ///< bytes per second
    Download,        ///< bytes in the current interval
    Upload,          ///< bytes in the current interval
};

constexpr std::size_t processFigureCount = 8;

/// As long as there are processes.
constexpr std::int32_t unlimitedProcesses = std::numeric_limits<std::int32_t>::max();

/// One place of a ranking. The item is the collector's, good until its next update.
struct ProcessListRow {
    const ProcessStatCollectorItem* item = nullptr;
    std::string name; ///< as shown to people
};

} // namespace meridal
