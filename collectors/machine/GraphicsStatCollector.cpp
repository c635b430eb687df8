// SPDX-License-Identifier: Apache-2.0
#include "collectors/machine/GraphicsStatCollector.h"

#include "base/Runtime.h"
#include "history/SampleStorages.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <utility>

namespace meridal {

namespace {

const std::vector<std::string> graphicsBusyColumns = {"busy"};
const std::vector<std::string> graphicsMemoryColumns = {"memoryused"};
const std::vector<std::string> graphicsClockColumns = {"frequency"};

} // namespace

GraphicsStatCollector::GraphicsStatCollector(Context& context)
    : MachineStatCollector(
        context, "graphics", {graphicsBusyColumns, graphicsMemoryColumns, graphicsClockColumns}, StorageType::Items)
{
}

void GraphicsStatCollector::read(double monotonicTime)
{
    std::map<std::string, Unit> before = std::exchange(units_, {});
    for (const GraphicsRecord& record : context().host.graphics->read(monotonicTime)) {
        const auto known = before.find(record.name);
        Unit& unit = units_[record.name] = known == before.end() ? Unit() : std::move(known->second);
        if (!unit.samples) {
            unit.samples = history().item(record.name);
        }
        unit.record = record;
        unit.busy = record.busyPercent;
        if (record.asleepNs) {
            const Timed<std::uint64_t> now{*record.asleepNs, monotonicTime};
            if (unit.asleep && !unit.busy) {
                unit.busy = awakeShare(*unit.asleep, now);
            }
            unit.asleep = now;
        }
        const Figure figures[] = {unit.busy, figureOf(record.memoryUsed), figureOf(record.frequencyHz)};
        unit.samples->addSample(context().runtime.wallTime(), figures);
    }
}

Value GraphicsStatCollector::state() const
{
    Value state = Value::object();
    for (const auto& [name, unit] : units_) {
        Value one = Value::object();
        if (!unit.record.driver.empty()) {
            one["driver"] = unit.record.driver;
        }
        put(one, "busy", unit.busy ? Figure(rounded(*unit.busy)) : std::nullopt);
        put(one, "memoryUsed", unit.record.memoryUsed);
        put(one, "memoryTotal", unit.record.memoryTotal);
        put(one, "frequency", unit.record.frequencyHz);
        state[name] = std::move(one);
    }
    return state;
}

void GraphicsStatCollector::addTo(HistoryCatalogue& catalogue)
{
    const auto add = [&](const char* name, const char* unit, const Columns& columns) {
        catalogue.add(name, history(), [this, unit, &columns] {
            std::vector<HistorySeries> series;
            for (const auto& [key, latest] : units_) {
                series.push_back({.key = key, .name = key, .unit = unit, .values = columns});
            }
            return series;
        });
    };
    add("graphics", "%", graphicsBusyColumns);
    add("graphicsmemory", "B", graphicsMemoryColumns);
    add("graphicsclock", "Hz", graphicsClockColumns);
}

} // namespace meridal
