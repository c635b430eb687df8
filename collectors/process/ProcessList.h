#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

namespace meridal {

class ProcessStatCollectorItem;

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
