// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/ValueFwd.h"
#include "platform/host/PeripheralBatteries.h"
#include "platform/host/PowerSources.h"

#include <optional>
#include <vector>

namespace meridal {

/// The sources of power, by their descriptions (IOPSGetPowerSourceDescription), without those of accessories. `battery`
/// holds the properties of the AppleSmartBattery service, null where there is none; of several internal batteries it is
/// the first one's that is there.
std::vector<PowerSourceRecord> powerSourcesOf(const std::vector<Dictionary>& descriptions, const Dictionary& battery);

/// The battery of an accessory among the power sources ("Type" is "Accessory Source"); absent for other sources.
std::optional<PeripheralBattery> accessoryBattery(const Dictionary& description);

/// The battery of a device in the I/O registry, from its properties: "BatteryPercent" or "Battery Level", "Product",
/// "DeviceAddress", "SerialNumber". Absent when it tells no percentage.
std::optional<PeripheralBattery> registryBattery(const Dictionary& properties);

} // namespace meridal
