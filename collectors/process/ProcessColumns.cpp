// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/ProcessColumns.h"

#include "collectors/process/ProcessStatCollectorItem.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace meridal {

namespace {

constexpr std::array<ProcessColumnTraits, 22> allColumns = {{
    {ProcessColumn::Pid, "pid", false, false},
    {ProcessColumn::Parent, "parent", false, false},
    {ProcessColumn::Start, "start", false, false},
    {ProcessColumn::User, "user", true, false},
    {ProcessColumn::Name, "name", true, false},
    {ProcessColumn::State, "state", true, false},
    {ProcessColumn::Nice, "nice", false, false},
    {ProcessColumn::Threads, "threads", false, true},
    {ProcessColumn::Group, "group", false, false},
    {ProcessColumn::Processes, "processes", false, true},
    {ProcessColumn::Unit, "unit", true, false},
    {ProcessColumn::Command, "command", true, false},
    {ProcessColumn::Cpu, "cpu", false, true},
    {ProcessColumn::Footprint, "footprint", false, true},
    {ProcessColumn::Resident, "resident", false, true},
    {ProcessColumn::Swap, "swap", false, true},
    {ProcessColumn::DiskRead, "diskRead", false, true},
    {ProcessColumn::DiskWritten, "diskWritten", false, true},
    {ProcessColumn::Received, "received", false, true},
    {ProcessColumn::Sent, "sent", false, true},
    {ProcessColumn::EnergyScore, "energyScore", false, true},
    {ProcessColumn::Wakeups, "wakeups", false, true},
}};

std::optional<double> trafficRate(const OptionalDouble& bytes, const TableMoment& moment)
{
    return bytes && moment.trafficSeconds > 0 ? std::optional(*bytes / moment.trafficSeconds) : std::nullopt;
}

std::optional<double> ofMemory(const ProcessStatCollectorItem& item, std::uint64_t bytes)
{
    return item.figures.memoryFootprint ? std::optional(static_cast<double>(bytes)) : std::nullopt;
}

} // namespace

std::span<const ProcessColumnTraits> processColumns() { return allColumns; }

const ProcessColumnTraits& traitsOf(ProcessColumn column) { return allColumns.at(static_cast<std::size_t>(column)); }

std::optional<ProcessColumn> columnNamed(std::string_view name)
{
    const auto* const found =
        std::find_if(allColumns.begin(), allColumns.end(), [name](const auto& each) { return each.name == name; });
    return found == allColumns.end() ? std::nullopt : std::optional(found->column);
}

std::string_view nameOfState(const ProcessStatCollectorItem& item)
{
    switch (item.state) {
    case RunState::Running:
        return "running";
    case RunState::Sleeping:
        return "sleeping";
    case RunState::DiskWait:
        return "disk";
    case RunState::Idle:
        return "idle";
    case RunState::Stopped:
        return "stopped";
    case RunState::Traced:
        return "traced";
    case RunState::Unknown:
        break;
    }
    return {};
}

std::optional<double> figureOf(const ProcessStatCollectorItem& item, ProcessColumn column, const TableMoment& moment)
{
    const ProcessFigures& figures = item.figures;
    switch (column) {
    case ProcessColumn::Pid:
        return item.pid;
    case ProcessColumn::Parent:
        return item.parentPid;
    case ProcessColumn::Start:
        return static_cast<double>(item.startIdentity); // as good to sort by
    case ProcessColumn::Nice:
        return item.nice;
    case ProcessColumn::Threads:
        return item.threads > 0 ? std::optional<double>(item.threads) : std::nullopt;
    case ProcessColumn::Processes:
        return 1;
    case ProcessColumn::Cpu:
        return figures.cpu;
    case ProcessColumn::Footprint:
        return figures.memory;
    case ProcessColumn::Resident:
        return ofMemory(item, item.counters.residentSize);
    case ProcessColumn::Swap:
        return ofMemory(item, item.counters.swapped);
    case ProcessColumn::DiskRead:
        return item.activity().diskRead;
    case ProcessColumn::DiskWritten:
        return item.activity().diskWrite;
    case ProcessColumn::Received:
        return trafficRate(item.activity().networkDownload, moment);
    case ProcessColumn::Sent:
        return trafficRate(item.activity().networkUpload, moment);
    case ProcessColumn::EnergyScore:
        return item.activity().powerScore;
    case ProcessColumn::Wakeups:
        return figures.wakeups;
    default:
        return std::nullopt;
    }
}

Value roundedFigure(ProcessColumn column, double figure)
{
    switch (column) {
    case ProcessColumn::Cpu:
    case ProcessColumn::EnergyScore:
    case ProcessColumn::Wakeups:
        return std::round(figure * 10) / 10;
    default:
        return std::llround(std::clamp(figure, -9e18, 9e18));
    }
}

} // namespace meridal
