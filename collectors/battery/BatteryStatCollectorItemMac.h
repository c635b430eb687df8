// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"
#include "collectors/battery/BatteryStatCollectorItem.h"
#include "platform/host/PowerSources.h"

#include <memory>

namespace meridal {

struct PeripheralBattery;

/// A power source, or the battery of a peripheral, as the host tells it.
class BatteryStatCollectorItemMac final : public BatteryStatCollectorItem {
public:
    using BatteryStatCollectorItem::BatteryStatCollectorItem;

    /// Takes what the system says of the source. Figures that are absent stay as they were; source, state and time
    /// do not.
    void processIOPS(const PowerSourceRecord& record);
    /// Takes what the battery's own controller counts.
    void processSmart(const BatteryControllerRecord& battery);
    /// Takes what a peripheral tells of its battery.
    void processPeripheral(const PeripheralBattery& battery);
    /// Lets the time be seen again.
    void cancelDelay();

    static constexpr double delayTime = 10; ///< s

private:
    /// What a record says about state and time, before the delay.
    struct Reading {
        BatterySource source = BatterySource::Unknown;
        BatteryState state = BatteryState::Charged;
        int time = batteryTime::unknown;
    };
    static Reading readState(const PowerSourceRecord& record);
    static Reading readOnAC(const PowerSourceRecord& record);
    int timeToEmpty(const PowerSourceRecord& record) const;
    void readFigures(const PowerSourceRecord& record);
    void changeState(BatteryState state);

    std::unique_ptr<Timer> delayTimer_;
};

} // namespace meridal
