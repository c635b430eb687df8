#pragma once

#include "platform/host/PeripheralBatteries.h"

namespace meridal {

/// Batteries of accessories as the power-management service keeps them (headsets, cases, phones), and those that drivers
/// publish in the I/O registry: "BatteryPercent" of current Bluetooth devices, "Battery Level" of older ones, and the
/// driver of Logitech's receivers. No Bluetooth framework is loaded: it would ask the user for leave, or end a daemon
/// that nobody can be asked for.
class MacPeripheralBatteries final : public PeripheralBatteries {
public:
    void bluetooth(Reply reply) override;
    std::vector<PeripheralBattery> logitech() override;
};

} // namespace meridal
