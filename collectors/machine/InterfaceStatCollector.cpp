// SPDX-License-Identifier: Apache-2.0
#include "collectors/machine/InterfaceStatCollector.h"

#include "base/Runtime.h"
#include "base/Text.h"
#include "history/SampleStorages.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <utility>

namespace meridal {

namespace {

const std::vector<std::string> trafficColumns = {"received", "sent"};
const std::vector<std::string> faultColumns = {"errors", "dropped"};

bool isRecorded(InterfaceKind kind) { return kind != InterfaceKind::Loopback && kind != InterfaceKind::Virtual; }

} // namespace

InterfaceStatCollector::InterfaceStatCollector(Context& context)
    : MachineStatCollector(context, "interface", {trafficColumns, faultColumns}, StorageType::Items)
{
}

void InterfaceStatCollector::read(double monotonicTime)
{
    const NetworkReading* reading = context().host.networkInterfaces->latest();
    isRead_ = reading != nullptr;
    if (!reading) {
        return; // what was there is recorded on when it can be read again
    }
    std::map<std::string, Interface> before = std::exchange(interfaces_, {});
    for (const InterfaceRecord& record : reading->interfaces) {
        const std::string name = validUtf8(record.name);
        Interface& interface = interfaces_[name];
        if (const auto known = before.find(name); known != before.end()) {
            const auto& earlier = known->second.reading;
            interface.rates = interfaceRates(earlier.reading, record, monotonicTime - earlier.time);
            interface.samples = std::move(known->second.samples);
        }
        if (!interface.samples && isRecorded(record.kind)) {
            interface.samples = history().item(name);
        }
        interface.reading = {record, monotonicTime};
        if (interface.samples) {
            const InterfaceRates& rates = interface.rates;
            const Figure figures[] = {rates.receivedBytes, rates.sentBytes, rates.errors, rates.dropped};
            interface.samples->addSample(context().runtime.wallTime(), figures);
        }
    }
}

Value InterfaceStatCollector::state() const
{
    if (!isRead_) {
        return nullptr;
    }
    Value state = Value::object();
    for (const auto& [name, interface] : interfaces_) {
        Value one = Value::object();
        const auto tell = [&one](const char* key, const Figure& figure) {
            put(one, key, figure ? Figure(rounded(*figure)) : std::nullopt);
        };
        tell("received", interface.rates.receivedBytes);
        tell("sent", interface.rates.sentBytes);
        tell("receivedPackets", interface.rates.receivedPackets);
        tell("sentPackets", interface.rates.sentPackets);
        tell("errors", interface.rates.errors);
        tell("dropped", interface.rates.dropped);
        state[name] = std::move(one);
    }
    return state;
}

void InterfaceStatCollector::addTo(HistoryCatalogue& catalogue)
{
    const auto add = [&](const char* name, const char* unit, const Columns& columns) {
        catalogue.add(name, history(), [this, unit, &columns] {
            std::vector<HistorySeries> series;
            for (const auto& [interface, latest] : interfaces_) {
                if (latest.samples) {
                    series.push_back({.key = interface, .name = interface, .unit = unit, .values = columns});
                }
            }
            return series;
        });
    };
    add("network", "B/s", trafficColumns);
    add("networkfaults", "1/s", faultColumns);
}

} // namespace meridal
