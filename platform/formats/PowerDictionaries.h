#pragma once

#include "base/ValueFwd.h"
#include "platform/host/PeripheralBatteries.h"

#include <optional>

namespace meridal {

/// What macOS says of batteries, in the shape in which PowerSources and PeripheralBatteries give it. Pure, so that it is
/// tested where no Mac is at hand.

/// A power-source description whose capacities are percent. Sources of other makers may count in mAh.
Dictionary percentDescription(Dictionary description);

/// The properties of the battery's driver with all capacities in mAh. On Apple silicon "MaxCapacity" and
/// "CurrentCapacity" are percent, and the real figures stand elsewhere; without them the entries are left out, for 100 of
/// 4,500 would look like a battery at 2 % of its health.
Dictionary milliampereSmartBattery(Dictionary properties);

/// The battery of an accessory among the power sources ("Type" is "Accessory Source"); absent for other sources.
std::optional<PeripheralBattery> accessoryBattery(const Dictionary& description);

/// The battery of a device in the I/O registry, from its properties: "BatteryPercent" or "Battery Level", "Product",
/// "DeviceAddress", "SerialNumber". Absent when it tells no percentage.
std::optional<PeripheralBattery> registryBattery(const Dictionary& properties);

} // namespace meridal
