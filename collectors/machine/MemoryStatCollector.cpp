// SPDX-License-Identifier: Apache-2.0
#include "collectors/machine/MemoryStatCollector.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

namespace {

const std::vector<std::string> memoryColumns = {
    "used", "available", "free", "buffers", "cached", "shared", "slab", "dirty", "writeback", "compressed", "wired"};
const std::vector<std::string> swapColumns = {"swapused"};
const std::vector<std::string> pagingColumns = {"swapin", "swapout"};

const char* wordFor(MemoryPressureLevel level)
{
    switch (level) {
    case MemoryPressureLevel::Normal:
        return "normal";
    case MemoryPressureLevel::Warning:
        return "warning";
    case MemoryPressureLevel::Critical:
        break;
    }
    return "critical";
}

std::optional<std::uint64_t> slabOf(const MemoryReading& memory)
{
    const auto& pinned = memory.slabUnreclaimable;
    return memory.slabReclaimable && pinned ? std::optional(*memory.slabReclaimable + *pinned) : std::nullopt;
}

} // namespace

MemoryStatCollector::MemoryStatCollector(Context& context)
    : MachineStatCollector(context, "memory", {memoryColumns, swapColumns, pagingColumns}, StorageType::Collector)
    , kills_(context, history().traits().dbpath)
{
}

void MemoryStatCollector::read(double monotonicTime)
{
    const MemoryReading* reading = counters().memory();
    if (!reading) {
        reading_.reset();
        return note({});
    }
    kills_.update(reading->outOfMemoryKills, history().isRecording());
    const auto before = std::exchange(reading_, Timed<MemoryReading>{*reading, monotonicTime});
    const SwapRates rates = before ? swapRates(*before, *reading_) : SwapRates();
    const std::uint64_t used = reading->total - std::min(reading->total, reading->available);
    note({figureOf(used), figureOf(reading->available), figureOf(reading->free), figureOf(reading->buffers),
        figureOf(reading->cached), figureOf(reading->shared), figureOf(slabOf(*reading)), figureOf(reading->dirty),
        figureOf(reading->writeback), figureOf(reading->compressed), figureOf(reading->wired),
        figureOf(reading->swapUsed), rates.inBytes, rates.outBytes});
}

Value MemoryStatCollector::state() const
{
    if (!reading_) {
        return nullptr;
    }
    const MemoryReading& reading = reading_->reading;
    Value state = namedLatest();
    state["total"] = reading.total;
    state["swaptotal"] = reading.swapTotal;
    state["swapused"] = reading.swapUsed;
    put(state, "slabreclaimable", reading.slabReclaimable);
    put(state, "slabunreclaimable", reading.slabUnreclaimable);
    put(state, "compressedcontents", reading.compressedContents);
    put(state, "ramdisks", reading.ramDisks);
    put(state, "ramdiskcontents", reading.ramDiskContents);
    put(state, "hugepages", reading.hugePages);
    put(state, "hugepagesfree", reading.hugePagesFree);
    put(state, "oomkills", reading.outOfMemoryKills);
    if (reading.pressureLevel) {
        state["pressurelevel"] = wordFor(*reading.pressureLevel);
    }
    return state;
}

void MemoryStatCollector::addTo(HistoryCatalogue& catalogue)
{
    offer(catalogue, "memory", "Memory", "B", memoryColumns);
    offer(catalogue, "swap", "Swap", "B", swapColumns);
    offer(catalogue, "paging", "Paging", "B/s", pagingColumns);
}

} // namespace meridal
