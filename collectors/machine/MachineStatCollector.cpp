// SPDX-License-Identifier: Apache-2.0
#include "collectors/machine/MachineStatCollector.h"

#include "base/Runtime.h"
#include "history/SampleStorages.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <cmath>
#include <utility>

namespace meridal {

namespace {

std::vector<std::string> joined(std::initializer_list<std::vector<std::string>> parts)
{
    std::vector<std::string> columns;
    for (const auto& part : parts) {
        columns.insert(columns.end(), part.begin(), part.end());
    }
    return columns;
}

} // namespace

MachineStatCollector::MachineStatCollector(
    Context& context, const std::string& name, std::initializer_list<Columns> columns, StorageType type)
    : StatCollector(context, name + " collector")
    , history_(context,
          {.description = description(),
              .columns = joined(columns),
              .storageType = type,
              .dbTablePrefix = name,
              .dbpath = context.paths.support / "machine-history.db",
              .dbpathLong = context.paths.support / "machine-history-long.db"})
{
    history_.leaveCommitsToOwner();
}

void MachineStatCollector::updateStats() { read(context().runtime.monotonicTime()); }

MachineCounters& MachineStatCollector::counters() const { return *context().host.machineCounters; }

void MachineStatCollector::note(std::vector<Figure> figures)
{
    latest_ = std::move(figures);
    if (!latest_.empty()) {
        history_.own().addSample(context().runtime.wallTime(), latest_);
    }
}

Value MachineStatCollector::named(std::span<const Figure> figures) const
{
    Value entry = Value::object();
    for (std::size_t column = 0; column < figures.size(); ++column) {
        if (figures[column]) {
            entry[history_.traits().columns[column]] = rounded(*figures[column]);
        }
    }
    return entry;
}

void MachineStatCollector::offer(HistoryCatalogue& catalogue, const std::string& series, const std::string& name,
    const std::string& unit, const Columns& columns)
{
    const HistorySeries one{.key = "", .name = name, .unit = unit, .values = columns};
    catalogue.add(series, history_, [one] { return std::vector{one}; });
}

double MachineStatCollector::rounded(double figure)
{
    constexpr double digits = 1e4; // what a quotient has beyond them is noise
    return std::round(figure * digits) / digits;
}

MachineStatCollector::Figure MachineStatCollector::figureOf(const std::optional<std::uint64_t>& count)
{
    return count ? Figure(static_cast<double>(*count)) : std::nullopt;
}

} // namespace meridal
