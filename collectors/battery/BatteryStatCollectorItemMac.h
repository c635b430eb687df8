#pragma once

#include "base/Runtime.h"
#include "collectors/battery/BatteryStatCollectorItem.h"

#include <memory>

namespace meridal {

struct PeripheralBattery;

/// A power source described in macOS's terms, which every host speaks.
class BatteryStatCollectorItemMac final : public BatteryStatCollectorItem {
public:
    using BatteryStatCollectorItem::BatteryStatCollectorItem;

    /// Takes one power-source description (PowerSources::descriptions). Entries that are missing leave their figure as
    /// it is, except for the source, the state and the time.
    void processIOPS(const Dictionary& description);
    /// Takes the entry of the battery's own controller (PowerSources::smartBatteries).
    void processSmart(const Dictionary& battery);
    /// Takes what a peripheral tells of its battery.
    void processPeripheral(const PeripheralBattery& battery);
    /// Lets the time be seen again.
    void cancelDelay();

    static constexpr double delayTime = 10; ///< s

private:
    /// What a description says about state and time, before the delay.
    struct Reading {
        BatterySource source = BatterySource::Unknown;
        BatteryState state = BatteryState::Charged;
        int time = batteryTime::unknown;
    };
    static Reading readState(const Dictionary& description);
    static Reading readOnAC(const Dictionary& description);
    static bool isDrained(const Dictionary& description);
    int timeToEmpty(const Dictionary& description) const;
    void readNameAndCharge(const Dictionary& description);
    void readCondition(const Dictionary& description);
    void changeState(BatteryState state);

    std::unique_ptr<Timer> delayTimer_;
};

} // namespace meridal
