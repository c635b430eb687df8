// SPDX-License-Identifier: Apache-2.0
#include "collectors/machine/BlockDeviceStatCollector.h"

#include "base/Runtime.h"
#include "history/SampleStorages.h"
#include "platform/Context.h"

#include <utility>

namespace meridal {

namespace {

const std::vector<std::string> byteColumns = {"readbytes", "writtenbytes"};
const std::vector<std::string> requestColumns = {"reads", "writes"};
const std::vector<std::string> latencyColumns = {"readtime", "writetime"};
const std::vector<std::string> busyColumns = {"busy"};
const std::vector<std::string> queueColumns = {"queue"};

const char* wordFor(BlockDeviceKind kind)
{
    switch (kind) {
    case BlockDeviceKind::Disk:
        return "disk";
    case BlockDeviceKind::Partition:
        return "partition";
    case BlockDeviceKind::Mapped:
        return "mapped";
    case BlockDeviceKind::Memory:
        break;
    }
    return "memory";
}

} // namespace

BlockDeviceStatCollector::BlockDeviceStatCollector(Context& context)
    : MachineStatCollector(context, "blockdevice",
        {byteColumns, requestColumns, latencyColumns, busyColumns, queueColumns}, StorageType::Items)
{
}

void BlockDeviceStatCollector::read(double monotonicTime)
{
    const auto* records = counters().blockDevices();
    isRead_ = records != nullptr;
    if (!records) {
        return; // what was there is recorded on when it can be read again
    }
    std::map<std::string, Device> before = std::exchange(devices_, {});
    for (const BlockDeviceRecord& record : *records) {
        Device& device = devices_[record.name];
        BlockDeviceRates rates;
        if (const auto known = before.find(record.name); known != before.end()) {
            const auto& earlier = known->second.reading;
            rates = blockDeviceRates(earlier.reading, record, monotonicTime - earlier.time);
            device.samples = std::move(known->second.samples);
        }
        if (!device.samples && record.kind == BlockDeviceKind::Disk) {
            device.samples = history().item(record.name);
        }
        device.reading = {record, monotonicTime};
        device.figures = {rates.readBytes, rates.writtenBytes, rates.reads, rates.writes, rates.readMs, rates.writeMs,
            rates.busy, rates.queue};
        if (device.samples) {
            device.samples->addSample(context().runtime.wallTime(), device.figures);
        }
    }
}

Value BlockDeviceStatCollector::state() const
{
    if (!isRead_) {
        return nullptr;
    }
    Value state = Value::array();
    for (const auto& [name, device] : devices_) {
        if (device.samples) {
            state.push_back(named(device.figures));
            state.back()["name"] = name;
        }
    }
    return state;
}

Value BlockDeviceStatCollector::stateOfAll() const
{
    if (!isRead_) {
        return nullptr;
    }
    Value state = Value::array();
    for (const auto& [name, device] : devices_) {
        state.push_back(named(device.figures));
        state.back()["name"] = name;
        state.back()["kind"] = wordFor(device.reading.reading.kind);
    }
    return state;
}

void BlockDeviceStatCollector::addTo(HistoryCatalogue& catalogue)
{
    const auto add = [&](const char* name, const char* unit, const Columns& columns) {
        catalogue.add(name, history(), [this, unit, &columns] {
            std::vector<HistorySeries> series;
            for (const auto& [device, latest] : devices_) {
                if (latest.samples) {
                    series.push_back({.key = device, .name = device, .unit = unit, .values = columns});
                }
            }
            return series;
        });
    };
    add("throughput", "B/s", byteColumns);
    add("requests", "1/s", requestColumns);
    add("latency", "ms", latencyColumns);
    add("busy", "%", busyColumns);
    add("queue", "", queueColumns);
}

} // namespace meridal
