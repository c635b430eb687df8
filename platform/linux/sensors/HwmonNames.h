// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace meridal::hwmon {

/// The port of an ATA controller by the kernel's number for it ("ata7").
using AtaPort = std::function<std::optional<std::string>(std::string_view ata)>;

/// Where a device sits, from its path below sys/devices: the same after a reboot, with a new kernel and with drivers
/// probed in another order. Numbers that are given out in order of probing are left out ("nvme0", "i2c-7", "usb2", the
/// host in "0:0:1:0", "hwmon4"); addresses and ports stay.
std::string stablePath(const std::filesystem::path& device, const AtaPort& ataPort);

/// What lm-sensors calls a chip: the driver's name for it, its bus and its address on that.
/// The subsystem is that of the device behind it ("pci"), the device that device's name ("0000:00:18.3"); both are empty
/// for a chip without one.
std::string chipName(std::string_view prefix, std::string_view subsystem, std::string_view device);
/// Whether chipName() knows that kind of bus.
bool isKnownBus(std::string_view subsystem);

} // namespace meridal::hwmon
