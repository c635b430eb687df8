#include "collectors/battery/BatteryStatCollectorItemMac.h"

#include "base/Runtime.h"
#include "collectors/battery/ManufactureDate.h"
#include "platform/Context.h"
#include "platform/host/PeripheralBatteries.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string_view>

namespace meridal {

namespace {

constexpr double fullPercentage = 100;

/// A whole figure that some systems give as a boolean and others as a number; 0 when missing.
std::int64_t wholeFigure(const Dictionary& description, std::string_view key)
{
    const Value* entry = find(description, key);
    if (entry && entry->is_boolean()) {
        return entry->get<bool>() ? 1 : 0;
    }
    return integer(description, key).value_or(0);
}

/// Minutes under a key; those below 0 are being calculated.
int minutes(const Dictionary& description, std::string_view key)
{
    const auto figure = integer(description, key);
    if (!figure || *figure < 0) {
        return batteryTime::unknown;
    }
    return static_cast<int>(std::min<std::int64_t>(*figure, std::numeric_limits<int>::max()));
}

std::optional<double> positive(const Dictionary& battery, std::string_view key)
{
    const auto figure = number(battery, key);
    return figure && *figure > 0 ? figure : std::nullopt;
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

// A power-source description

void BatteryStatCollectorItemMac::processIOPS(const Dictionary& description)
{
    readNameAndCharge(description);
    readCondition(description);
    Reading reading = readState(description);
    if (type() == BatteryType::Internal && reading.state == BatteryState::NotCharging && isDrained(description)) {
        reading.state = BatteryState::Draining;
        reading.time = timeToEmpty(description);
    }
    if (reading.state == BatteryState::NotCharging && reading.source == BatterySource::AC
        && wholeFigure(description, "Optimized Battery Charging Engaged") == 1) {
        reading.state = BatteryState::Optimized;
    }
    setSource(reading.source);
    if (const auto millivolts = number(description, "Voltage")) {
        setVoltage(*millivolts);
    }
    if (const auto milliamperes = number(description, "Current")) {
        setAmperage(*milliamperes);
    }
    if (type() == BatteryType::UPS && percentage() == fullPercentage && reading.source != BatterySource::Battery) {
        reading.state = BatteryState::Charged; // few of them tell it themselves
    }
    if (type() == BatteryType::Internal) {
        setName("Battery");
    }
    setTime(reading.time);
    changeState(reading.state);
}

void BatteryStatCollectorItemMac::readNameAndCharge(const Dictionary& description)
{
    if (name().empty()) {
        const std::string told = text(description, "Name").value_or("");
        setName(told.starts_with(' ') ? told.substr(1) : told);
    }
    const Value* charge = find(description, "Current Capacity");
    if (charge && charge->is_number()) {
        const double percent = charge->get<double>();
        setPercentage(std::isnan(percent) ? 0 : std::clamp(std::trunc(percent), 0.0, fullPercentage));
    }
}

void BatteryStatCollectorItemMac::readCondition(const Dictionary& description)
{
    const auto health = text(description, "BatteryHealth");
    if (health == "Poor") {
        setCondition(BatteryCondition::Poor);
    } else if (health == "Fair") {
        setCondition(BatteryCondition::Fair);
    } else if (health == "Good") {
        setCondition(BatteryCondition::Good);
    } else if (health == "Check Battery") {
        setCondition(BatteryCondition::CheckBattery);
    }
    const auto condition = text(description, "BatteryHealthCondition");
    if (condition == "Check Battery") {
        setCondition(BatteryCondition::CheckBattery);
    } else if (condition == "Permanent Battery Failure") {
        setCondition(BatteryCondition::PermanentFailure);
    }
}

BatteryStatCollectorItemMac::Reading BatteryStatCollectorItemMac::readState(const Dictionary& description)
{
    const auto state = text(description, "Power Source State");
    if (!state) {
        return {};
    }
    if (state == "AC Power") {
        return readOnAC(description);
    }
    return {.source = BatterySource::Battery,
        .state = BatteryState::Draining,
        .time = minutes(description, "Time to Empty")};
}

BatteryStatCollectorItemMac::Reading BatteryStatCollectorItemMac::readOnAC(const Dictionary& description)
{
    Reading reading{.source = BatterySource::AC, .state = BatteryState::NotCharging};
    if (wholeFigure(description, "Is Charged") == 1) {
        reading.state = BatteryState::Charged;
        reading.time = batteryTime::charged; // whatever else it says, also of the time to full
        return reading;
    }
    if (wholeFigure(description, "Is Charging") != 0) {
        reading.state = BatteryState::Charging;
        reading.time = minutes(description, "Time to Full Charge");
    }
    if (!find(description, "Time to Full Charge")) {
        reading.time = batteryTime::noFigure;
    }
    return reading;
}

/// An adapter that gives less than the machine takes leaves the rest to the battery.
bool BatteryStatCollectorItemMac::isDrained(const Dictionary& description)
{
    constexpr double leak = 100; // mA, that a battery may give while it is merely held back from charging
    if (const auto milliamperes = number(description, "Current")) {
        return *milliamperes <= -leak;
    }
    return integer(description, "Time to Empty").value_or(0) != 0;
}

int BatteryStatCollectorItemMac::timeToEmpty(const Dictionary& description) const
{
    const int told = minutes(description, "Time to Empty");
    if (told > 0) {
        return told;
    }
    const auto milliamperes = number(description, "Current"); // systems that tell no time on AC power tell the rate
    constexpr double percent = 100;                           // some systems tell capacities as shares of this
    if (!currentCapacity() || maximumCapacity().value_or(0) <= percent || !milliamperes || *milliamperes >= 0) {
        return batteryTime::unknown;
    }
    constexpr double longest = 30 * 24; // h; no battery lasts longer
    const double hours = *currentCapacity() / -*milliamperes;
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

void BatteryStatCollectorItemMac::processSmart(const Dictionary& battery)
{
    if (name().empty()) {
        setName("Internal Battery");
    }
    if (!manufactureTime()) {
        if (const auto made = manufactureDate(battery)) {
            setManufactureTime(*made);
        }
    }
    // Nothing that holds charge holds none: a 0 is a controller that does not know.
    const auto design = positive(battery, "DesignCapacity");
    const auto maximum = positive(battery, "MaxCapacity");
    if (design) {
        setDesignCapacity(*design);
    }
    if (maximum) {
        setMaximumCapacity(*maximum);
    }
    if (design && maximum) {
        setHealth(std::min(*maximum / *design * fullPercentage, fullPercentage));
    }
    if (const auto current = number(battery, "CurrentCapacity"); current && *current >= 0) {
        setCurrentCapacity(*current);
    }
    if (const auto count = integer(battery, "CycleCount"); count && *count >= 0) {
        setCycles(*count);
    }
    if (const auto milliamperes = number(battery, "Amperage")) {
        setAmperage(*milliamperes);
    }
    if (const auto millivolts = number(battery, "Voltage")) {
        setVoltage(*millivolts);
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
