// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/PeripheralBatteries.h"

#include <optional>
#include <string>
#include <string_view>

namespace meridal {

/// What the names of connected devices tell, on every host.

/// The kind of device that a name for people speaks of: "Magic Keyboard".
PeripheralKind kindOfName(std::string_view name);

/// "AA-BB-CC-DD-EE-FF" and the like as "aa:bb:cc:dd:ee:ff"; absent for what is no hardware address.
std::optional<std::string> hardwareAddress(std::string_view text);

} // namespace meridal
