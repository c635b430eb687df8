#pragma once

#include "base/Value.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace meridal {

/// Batteries, UPSs and the adapter of this machine. Dictionaries carry macOS's entry names on every host, so that one
/// collector reads both. Main queue only.
/// macOS: IOPSCopyPowerSourcesInfo, the AppleSmartBattery service, the dynamic store. Linux: /sys/class/power_supply
/// and its uevents, /dev/hidraw* of UPSs that are not in there.
class PowerSources {
public:
    /// Destroying it ends the observation.
    class Observation {
    public:
        virtual ~Observation() = default;
    };

    virtual ~PowerSources() = default;

    /// One description a source, as it is now. "Name", "Type" ("InternalBattery", "UPS"), "Transport Type" ("Internal",
    /// "USB"), "Power Source State" ("AC Power", "Battery Power", "Off Line"), "Is Present", "Is Charging", "Is
    /// Charged", "Current Capacity" and "Max Capacity" (%), "Time to Empty" and "Time to Full Charge" (min, -1 =
    /// being calculated), "Voltage" (mV), "Current" (mA, negative while discharging), "BatteryHealth",
    /// "BatteryHealthCondition", "Hardware Serial Number". What the system does not tell is left out.
    virtual std::vector<Dictionary> descriptions() = 0;

    /// The internal batteries as their own controllers see them, in the order in which descriptions() has them:
    /// "ExternalConnected", "BatteryInstalled", "IsCharging", "FullyCharged", "CurrentCapacity", "MaxCapacity",
    /// "DesignCapacity" (mAh), "CycleCount", "Voltage" (mV), "Amperage" (mA, negative while discharging),
    /// "TimeRemaining" (min), "Temperature" (hundredths of a degree Celsius), "ManufactureDate" (packed), "Serial",
    /// "BatteryData".
    virtual std::vector<Dictionary> smartBatteries() = 0;

    /// Asks the sources that the system does not keep track of itself, and calls back on the main queue, once, when
    /// descriptions() has their answers: at once where there is no such source, within seconds where one does not answer.
    virtual void refresh(std::function<void()> done) { done(); }

    /// Calls the handler on the main queue whenever a source or the adapter may have changed.
    [[nodiscard]] virtual std::unique_ptr<Observation> observe(std::function<void()> changed) = 0;
};

} // namespace meridal
