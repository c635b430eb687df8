// SPDX-License-Identifier: Apache-2.0
#include "collectors/machine/PressureStatCollector.h"

#include <string>
#include <utility>
#include <vector>

namespace meridal {

namespace {

const std::vector<std::string> pressureColumns = {"cpusome", "memorysome", "memoryfull", "iosome", "iofull"};

} // namespace

PressureStatCollector::PressureStatCollector(Context& context)
    : MachineStatCollector(context, "pressure", {pressureColumns}, StorageType::Collector)
{
}

void PressureStatCollector::read(double monotonicTime)
{
    const PressureReading* reading = counters().pressure();
    if (!reading) {
        reading_.reset();
        return note({});
    }
    const auto before = std::exchange(reading_, Timed<PressureReading>{*reading, monotonicTime});
    const auto between = [&](auto which) {
        return before ? stallShares(before->reading.*which, reading->*which, monotonicTime - before->time)
                      : StallShares();
    };
    const StallShares memory = between(&PressureReading::memory);
    const StallShares storage = between(&PressureReading::storage);
    note({between(&PressureReading::processor).some, memory.some, memory.full, storage.some, storage.full});
}

Value PressureStatCollector::state() const { return reading_ ? namedLatest() : Value(); }

void PressureStatCollector::addTo(HistoryCatalogue& catalogue)
{
    offer(catalogue, "pressure", "Pressure", "%", pressureColumns);
}

} // namespace meridal
