// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace meridal {

class ProcessStatCollectorItem;

/// What can be shown of each process in a table, and what it can be sorted by.
enum class ProcessColumn : std::uint8_t {
    Pid,
    Parent,
    Start,
    User,
    Name,
    State,
    Nice,
    Threads,
    Group,
    Processes,
    Unit,
    Command,
    Cpu,
    Footprint,
    Resident,
    Swap,
    DiskRead,
    DiskWritten,
    Received,
    Sent,
    EnergyScore,
    Wakeups,
};

struct ProcessColumnTraits {
    ProcessColumn column;
    const char* name; ///< as clients know it
    bool isText;      ///< sorted from A to Z; numbers from the largest down
    bool isSum;       ///< of a group, what all in it have
};

/// In the order in which they stand above.
std::span<const ProcessColumnTraits> processColumns();
const ProcessColumnTraits& traitsOf(ProcessColumn column);
std::optional<ProcessColumn> columnNamed(std::string_view name);

/// A state in a word: "running". Empty for one that is not known.
std::string_view nameOfState(const ProcessStatCollectorItem& item);

/// What the bytes of a process's traffic are to be divided by; 0 where traffic is not counted.
struct TableMoment {
    double trafficSeconds = 0;
};

/// The figure of one process in a column that is a sum, or a number of another kind; absent while it is not known, and of
/// columns of text.
std::optional<double> figureOf(const ProcessStatCollectorItem& item, ProcessColumn column, const TableMoment& moment);

/// As it stands in an answer: no finer than people can see it change, so that who watches is told of changes that are some.
Value roundedFigure(ProcessColumn column, double figure);

} // namespace meridal
