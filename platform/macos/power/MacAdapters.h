// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/Limitations.h"
#include "platform/host/PeripheralBatteries.h"
#include "platform/host/PowerMessages.h"
#include "platform/host/PowerSources.h"

#include <memory>

namespace meridal {

class Runtime;

/// Batteries of accessories as the power-management service keeps them (headsets, cases, phones), and those that drivers
/// publish in the I/O registry: "BatteryPercent" of current Bluetooth devices, "Battery Level" of older ones, and the
/// driver of Logitech's receivers. No Bluetooth framework is loaded: it would ask the user for leave, or end a daemon
/// that nobody can be asked for.
std::unique_ptr<PeripheralBatteries> makeMacPeripheralBatteries();

/// The messages of the root power domain, delivered on the main queue. The token is the message's own argument.
std::unique_ptr<PowerMessages> makeMacPowerMessages(std::shared_ptr<Limitations> limitations);

/// IOPS snapshots, the AppleSmartBattery service, and one session with the dynamic store for its keys of power sources. The
/// runtime must outlive it.
std::unique_ptr<PowerSources> makeMacPowerSources(Runtime& runtime);

} // namespace meridal
