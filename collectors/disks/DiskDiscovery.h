#pragma once

#include "platform/host/Registry.h"

#include <optional>
#include <string>

namespace meridal {

/// The model that a disk's entry tells: vendor and product, shortened for disks that Apple brands. Absent without one.
std::optional<std::string> modelOfDisk(const RegistryEntry& entry);

/// The serial number that a disk's entry tells, or else one of the bridges above it. Absent where there is none but
/// blanks.
std::optional<std::string> serialOfDisk(const RegistryEntry& entry);

/// The name of the disk's block device.
std::optional<std::string> bsdOfDisk(const RegistryEntry& entry);

} // namespace meridal
