// SPDX-License-Identifier: Apache-2.0
#include "collectors/battery/BatteryStatCollectorMac.h"

#include "base/Runtime.h"
#include "base/SharedInstance.h"
#include "collectors/battery/BatteryTotal.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <set>
#include <string>
#include <utility>

namespace meridal {

namespace {

/// A key that is the same whenever the same battery is there: name and serial number. Makers that give every pack one
/// serial number get a number of their own.
std::string freeKey(std::set<std::string>& keys, const std::string& name, const std::string& serial)
{
    const std::string key = serial.empty() ? name : name + ' ' + serial;
    std::string free = key;
    for (int number = 2; keys.count(free) != 0; ++number) {
        free = key + " #" + std::to_string(number);
    }
    keys.insert(free);
    return free;
}

} // namespace

BatteryStatCollectorMac::BatteryStatCollectorMac(Context& context) : BatteryStatCollector(context) { }

BatteryStatCollectorMac& BatteryStatCollectorMac::sharedBatteryCollector()
{
    auto& instance = sharedInstance<BatteryStatCollectorMac>();
    if (!instance) {
        instance = std::make_unique<BatteryStatCollectorMac>(Context::shared());
    }
    return *instance;
}

void BatteryStatCollectorMac::cleanupShared()
{
    auto& instance = sharedInstance<BatteryStatCollectorMac>();
    if (instance) {
        instance->cleanup();
        instance.reset();
    }
}

std::shared_ptr<StatCollectorItem> BatteryStatCollectorMac::makeItem()
{
    return std::make_shared<BatteryStatCollectorItemMac>(context());
}

BatteryStatCollectorMac::ItemPointer BatteryStatCollectorMac::item(const std::string& key)
{
    return std::static_pointer_cast<BatteryStatCollectorItemMac>(newItemWithKey(key));
}

void BatteryStatCollectorMac::updateStats()
{
    itemsBefore_ = items().size();
    for (const auto& each : items()) {
        const auto battery = std::static_pointer_cast<BatteryStatCollectorItemMac>(each);
        battery->setExists(battery->isPeripheral()); // those are settled when their answer comes
    }
    batteriesIOPS();
    finishUpdate();
    if (!disableAllBluetooth_) {
        updatePeripherals();
    }
}

void BatteryStatCollectorMac::finishUpdate()
{
    const std::size_t found = items().size();
    const bool removed = removeOldItems();
    sort();
    recordChanges();
    if (removed || found != itemsBefore_) {
        setChildrenChanged(true);
        tellChildrenChanged();
    }
    if (updaterFinishBlock()) {
        updaterFinishBlock()(*this);
    }
}

// Power sources

void BatteryStatCollectorMac::batteriesIOPS()
{
    std::set<std::string> keys; // given out in this update
    for (const PowerSourceRecord& source : context().host.powerSources->sources()) {
        if (!source.present) {
            continue;
        }
        const char* const fallback = source.kind == PowerSourceKind::UPS ? "UPS" : "InternalBattery";
        const auto battery = item(freeKey(keys, source.name.empty() ? fallback : source.name, source.serial));
        battery->setExists(true);
        battery->setSlept(sleptInAll_ ? sleptInAll_() : 0);
        battery->processIOPS(source);
        if (source.controller) {
            battery->processSmart(*source.controller);
        }
    }
}

BatteryStatCollectorMac::ItemPointer BatteryStatCollectorMac::lastOfType(BatteryType type) const
{
    ItemPointer last;
    for (const auto& each : items()) {
        const auto battery = std::static_pointer_cast<BatteryStatCollectorItemMac>(each);
        last = battery->type() == type ? battery : last;
    }
    return last;
}

BatteryStatCollectorMac::ItemPointer BatteryStatCollectorMac::internalBattery() const
{
    return lastOfType(BatteryType::Internal);
}

BatteryStatCollectorMac::ItemPointer BatteryStatCollectorMac::primaryBattery() const
{
    const auto own = internalBattery();
    return own ? own : lastOfType(BatteryType::UPS);
}

std::vector<const BatteryStatCollectorItem*> BatteryStatCollectorMac::batteriesOfType(BatteryType type) const
{
    std::vector<const BatteryStatCollectorItem*> batteries;
    for (const auto& each : items()) {
        const auto* battery = static_cast<const BatteryStatCollectorItem*>(each.get());
        if (battery->type() == type) {
            batteries.push_back(battery);
        }
    }
    return batteries;
}

std::optional<Dictionary> BatteryStatCollectorMac::internalTotal() const
{
    return batteryTotal(batteriesOfType(BatteryType::Internal));
}

// Peripherals

void BatteryStatCollectorMac::updatePeripherals()
{
    const double now = context().runtime.monotonicTime();
    if (peripheralsAsked_ || (lastBluetoothTime_ && now - *lastBluetoothTime_ < peripheralInterval)) {
        return;
    }
    lastBluetoothTime_ = now;
    updateBluetooth();
}

void BatteryStatCollectorMac::updateBluetooth()
{
    peripheralsAsked_ = true;
    context().host.peripherals->bluetooth(lifetime_.guard([this](const std::vector<PeripheralBattery>& found) {
        itemsBefore_ = items().size();
        for (const auto& each : items()) {
            const auto battery = std::static_pointer_cast<BatteryStatCollectorItemMac>(each);
            battery->setExists(!battery->isPeripheral());
        }
        fetchBluetoothItems(found);
        updateLogitech();
        finishUpdate();
        peripheralsAsked_ = false;
        for (const Task& task : std::exchange(waiting_, {})) {
            task();
        }
    }));
}

void BatteryStatCollectorMac::updateLogitech() { fetchBluetoothItems(context().host.peripherals->logitech()); }

void BatteryStatCollectorMac::fetchBluetoothItems(const std::vector<PeripheralBattery>& found)
{
    for (const PeripheralBattery& peripheral : found) {
        const auto battery = item("peripheral " + peripheral.key);
        battery->setExists(true);
        battery->processPeripheral(peripheral);
    }
}

void BatteryStatCollectorMac::whenPeripheralsKnown(Task task)
{
    if (peripheralsAsked_) {
        waiting_.push_back(std::move(task));
    } else {
        task();
    }
}

} // namespace meridal
