// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/PeripheralBatteries.h"

#include <vector>

struct sd_bus_message;

namespace meridal {

/// The batteries of the connected devices in BlueZ's answer to GetManagedObjects (a{oa{sa{sv}}}). What does not have the
/// form that BlueZ documents is passed over.
std::vector<PeripheralBattery> batteriesOfBluez(sd_bus_message& reply);

} // namespace meridal
