// SPDX-License-Identifier: Apache-2.0
#include "collectors/battery/BatteryStatCollectorItemMac.h"

#include "base/Runtime.h"
#include "platform/Context.h"
#include "platform/host/PeripheralBatteries.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace meridal {

namespace {

constexpr double fullPercentage = 100;

/// Minutes, where they are told and not just being calculated.
int minutesOf(const std::optional<TimeEstimate>& estimate)
{
    return estimate ? estimate->minutes.value_or(batteryTime::unknown) : batteryTime::unknown;
}

BatteryCondition conditionOf(BatteryVerdict verdict)
{
    switch (verdict) {
    case BatteryVerdict::Poor:
        return BatteryCondition::Poor;
    case BatteryVerdict::Fair:
        return BatteryCondition::Fair;
    case BatteryVerdict::Good:
        return BatteryCondition::Good;
    case BatteryVerdict::CheckBattery:
        return BatteryCondition::CheckBattery;
    case BatteryVerdict::PermanentFailure:
        break;
    }
    return BatteryCondition::PermanentFailure;
}

/// An adapter that gives less than the machine takes leaves the rest to the battery.
bool isDrained(const PowerSourceRecord& record)
{
    constexpr std::int64_t leak = 100; // mA, that a battery may give while it is merely held back from charging
    return record.currentMa ? *record.currentMa <= -leak : record.toEmpty && record.toEmpty->minutes != 0;
}

BatteryType typeOf(PeripheralKind kind)
{
    switch (kind) {
    case PeripheralKind::Keyboard:
        return BatteryType::Keyboard;
    case PeripheralKind::Mouse:
        return BatteryType::Mouse;
    case PeripheralKind::Trackpad:
        return BatteryType::Trackpad;
    case PeripheralKind::Headset:
        return BatteryType::Headset;
    case PeripheralKind::GameController:
        return BatteryType::GameController;
    case PeripheralKind::Tablet:
        return BatteryType::Tablet;
    case PeripheralKind::Phone:
        return BatteryType::Phone;
    case PeripheralKind::Other:
        break;
    }
    return BatteryType::Other;
}

} // namespace

// A power source

void BatteryStatCollectorItemMac::processIOPS(const PowerSourceRecord& record)
{
    setType(record.kind == PowerSourceKind::UPS ? BatteryType::UPS : BatteryType::Internal);
    readFigures(record);
    Reading reading = readState(record);
    if (type() == BatteryType::Internal && reading.state == BatteryState::NotCharging && isDrained(record)) {
        reading.state = BatteryState::Draining;
        reading.time = timeToEmpty(record);
    }
    if (reading.state == BatteryState::NotCharging && record.heldBack) {
        reading.state = BatteryState::Optimized;
    }
    setSource(reading.source);
    if (type() == BatteryType::UPS && percentage() == fullPercentage && reading.source != BatterySource::Battery) {
        reading.state = BatteryState::Charged; // few of them tell it themselves
    }
    setTime(reading.time);
    changeState(reading.state);
}

void BatteryStatCollectorItemMac::readFigures(const PowerSourceRecord& record)
{
    if (type() == BatteryType::Internal) {
        setName("Battery");
    } else if (name().empty()) {
        setName(record.name.starts_with(' ') ? record.name.substr(1) : record.name);
    }
    if (record.chargePercent) {
        setPercentage(*record.chargePercent);
    }
    if (record.verdict) {
        setCondition(conditionOf(*record.verdict));
    }
    if (record.voltageMv) {
        setVoltage(static_cast<double>(*record.voltageMv));
    }
    if (record.currentMa) {
        setAmperage(static_cast<double>(*record.currentMa));
    }
}

BatteryStatCollectorItemMac::Reading BatteryStatCollectorItemMac::readState(const PowerSourceRecord& record)
{
    switch (record.supply) {
    case PowerSupplyState::Unknown:
        break;
    case PowerSupplyState::AC:
        return readOnAC(record);
    case PowerSupplyState::Battery:
    case PowerSupplyState::OffLine:
        return {.source = BatterySource::Battery, .state = BatteryState::Draining, .time = minutesOf(record.toEmpty)};
    }
    return {};
}

BatteryStatCollectorItemMac::Reading BatteryStatCollectorItemMac::readOnAC(const PowerSourceRecord& record)
{
    if (record.charged) { // whatever else it says, also of the time to full
        return {.source = BatterySource::AC, .state = BatteryState::Charged, .time = batteryTime::charged};
    }
    return {.source = BatterySource::AC,
        .state = record.charging ? BatteryState::Charging : BatteryState::NotCharging,
        .time = !record.toFull ? batteryTime::noFigure
            : record.charging  ? minutesOf(record.toFull)
                               : batteryTime::unknown};
}

int BatteryStatCollectorItemMac::timeToEmpty(const PowerSourceRecord& record) const
{
    const int told = minutesOf(record.toEmpty);
    if (told > 0) {
        return told;
    }
    // Systems that tell no time on AC power tell the rate.
    if (!currentCapacity() || !record.currentMa || *record.currentMa >= 0) {
        return batteryTime::unknown;
    }
    constexpr double longest = 30 * 24; // h; no battery lasts longer
    const double hours = *currentCapacity() / -static_cast<double>(*record.currentMa);
    return hours <= longest ? static_cast<int>(std::lround(hours * 60)) : batteryTime::unknown;
}

void BatteryStatCollectorItemMac::changeState(BatteryState next)
{
    if (next != state() && !firstUpdate()) {
        delayTimer_.reset();
        setDelay(next == BatteryState::Charging || next == BatteryState::Draining);
        if (delay()) {
            Runtime& runtime = context().runtime;
            delayTimer_ = runtime.startTimer(runtime.mainQueue(), {.first = delayTime}, [this] { cancelDelay(); });
        }
    }
    setState(next);
    setFirstUpdate(false);
}

void BatteryStatCollectorItemMac::cancelDelay()
{
    delayTimer_.reset();
    setDelay(false);
}

// The battery's own controller

void BatteryStatCollectorItemMac::processSmart(const BatteryControllerRecord& battery)
{
    if (name().empty()) {
        setName("Internal Battery");
    }
    if (!manufactureTime() && battery.manufactured) {
        const auto day = std::chrono::sys_days(*battery.manufactured).time_since_epoch();
        setManufactureTime(static_cast<double>(std::chrono::duration_cast<std::chrono::seconds>(day).count()));
    }
    const auto take = [this](const auto& figure, void (BatteryStatCollectorItem::*into)(double)) {
        if (figure) {
            (this->*into)(static_cast<double>(*figure));
        }
    };
    take(battery.chargeDesignMah, &BatteryStatCollectorItem::setDesignCapacity);
    take(battery.chargeFullMah, &BatteryStatCollectorItem::setMaximumCapacity);
    take(battery.chargeNowMah, &BatteryStatCollectorItem::setCurrentCapacity);
    take(battery.energyNowMwh, &BatteryStatCollectorItem::setEnergy);
    take(battery.currentMa, &BatteryStatCollectorItem::setAmperage);
    take(battery.voltageMv, &BatteryStatCollectorItem::setVoltage);
    if (battery.chargeDesignMah && battery.chargeFullMah) {
        const double share =
            static_cast<double>(*battery.chargeFullMah) / static_cast<double>(*battery.chargeDesignMah);
        setHealth(std::min(share * fullPercentage, fullPercentage));
    }
    if (battery.cycles) {
        setCycles(*battery.cycles);
    }
}

// A peripheral

void BatteryStatCollectorItemMac::processPeripheral(const PeripheralBattery& battery)
{
    setType(typeOf(battery.kind));
    setName(battery.name);
    setLevel(battery.level);
    setIOBluetoothBattery(battery.bluetooth);
    // An old percentage is no answer where the device tells a level now.
    setPercentage(battery.percent && std::isfinite(*battery.percent)
            ? std::optional(std::clamp(*battery.percent, 0.0, fullPercentage))
            : std::nullopt);
    setState(battery.charging.value_or(false) ? BatteryState::Charging : BatteryState::Draining);
    setFirstUpdate(false);
}

} // namespace meridal
