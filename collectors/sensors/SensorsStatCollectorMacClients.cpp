// SPDX-License-Identifier: Apache-2.0
// The part of SensorsStatCollectorMac that keeps what ordinary users' clients name apart from what is there for all.

#include "base/Runtime.h"
#include "base/Value.h"
#include "collectors/sensors/SensorEntry.h"
#include "collectors/sensors/SensorsStatCollectorMac.h"
#include "platform/Context.h"

#include <algorithm>
#include <utility>

namespace meridal {

namespace {

/// An item as the entry that it was made of.
Value entryOfItem(const SensorStatCollectorItemMac& item)
{
    Value entry{{"type", item.type()}, {"key", item.key().value_or("")}, {"name", item.name()},
        {"config", parseUntrusted(keptForm(item.sensorConfig())).value_or(nullptr)}};
    if (item.hasFixedLimits()) {
        entry["low"] = item.low();
        entry["high"] = item.high();
    }
    return entry;
}

} // namespace

void SensorsStatCollectorMac::nameForClient(
    const ClientSensors::Owner& owner, const Value& entries, SensorRequest request)
{
    if (sensorList(entries).empty()) {
        return;
    }
    startToFollow();
    SensorItems made;
    std::int64_t index = 0;
    for (const Value& entry : sensorList(entries)) {
        const std::string key = text(entry, "key").value_or("");
        if (key.empty() || key.size() > longestSensorName || named_.contains(key) || makesTooManyKeys(entry)) {
            continue;
        }
        const auto make = [&] {
            made.push_back(std::make_shared<Item>(context()));
            made.back()->setKey(key);
            made.back()->loadAlternateKey();
            return made.back();
        };
        ClientSensors::Sensor* sensor = clients_.name(owner, key, make);
        if (!sensor) {
            continue;
        }
        sensor->request = request;
        sensor->item->setSource(request == SensorRequest::Services ? Item::Source::Service : Item::Source::SMC);
        takeSensorEntry(*sensor->item, entry, index++);
        takeExtremes(*sensor->item);
    }
    const double now = context().runtime.monotonicTime();
    const OneReading once(*this);
    readAhead(made);
    for (const auto& item : made) {
        sample(*item, now, Sampling::Asked); // who asked sees a value at once
    }
}

/// What has been seen of the same figure is known already.
void SensorsStatCollectorMac::takeExtremes(Item& item)
{
    const auto shared = std::static_pointer_cast<Item>(itemWithKey(item.key().value_or("")));
    const bool isSame = shared && shared->hasSeenLimits() && shared->source() == item.source()
        && shared->sensorConfig().identity() == item.sensorConfig().identity();
    if (isSame) {
        item.takeStoredLimits({.low = shared->lowestRecordedValue(), .high = shared->highestRecordedValue()});
    }
}

void SensorsStatCollectorMac::forgetClient(const ClientSensors::Owner& owner) { clients_.forget(owner); }

void SensorsStatCollectorMac::keepForAll(const ClientSensors::Owner& owner)
{
    for (const ClientSensors::Sensor& sensor : clients_.take(owner)) {
        process(Value::array({entryOfItem(*sensor.item)}), sensor.request, Finder::Client);
    }
    begin();
}

SensorsStatCollectorMac::SensorItems SensorsStatCollectorMac::sensorsFor(std::optional<std::uint32_t> uid) const
{
    SensorItems shown = sensors();
    const auto& theirs = clients_.ofUser(uid.value_or(0)); // root has none: what it names is there for all
    if (theirs.empty()) {
        return shown;
    }
    const auto isTheirs = [&](const std::string& key) { return theirs.contains(key) && !named_.contains(key); };
    std::erase_if(shown, [&](const auto& item) { return isTheirs(item->key().value_or("")); });
    for (const auto& [key, sensor] : theirs) {
        if (isTheirs(key)) {
            shown.push_back(sensor.item);
        }
    }
    return shown;
}

} // namespace meridal
