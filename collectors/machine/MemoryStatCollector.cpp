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

std::optional<std::uint64_t> slabOf(const MemoryReading& memory)
{
    const auto& pinned = memory.slabUnreclaimable;
    return memory.slabReclaimable && pinned ? std::optional(*memory.slabReclaimable + *pinned) : std::nullopt;
}

} // namespace

MemoryStatCollector::MemoryStatCollector(Context& context)
    : MachineStatCollector(context, "memory", {memoryColumns, swapColumns, pagingColumns}, StorageType::Collector)
{
}

void MemoryStatCollector::read(double monotonicTime)
{
    const MemoryReading* reading = counters().memory();
    if (!reading) {
        reading_.reset();
        return note({});
    }
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
    if (reading.hugePages) {
        state["hugepages"] = *reading.hugePages;
    }
    if (reading.outOfMemoryKills) {
        state["oomkills"] = *reading.outOfMemoryKills;
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
