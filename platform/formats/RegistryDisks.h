// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/formats/RegistryEntry.h"
#include "platform/host/Disks.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace meridal {

/// What the I/O registry says of disks: which entry holds what.

/// The property that is true of disks of a kind that have health data.
std::string_view capabilityOf(SMARTKind kind);

/// A disk by the entry that has its capability, without its path: what the entry says in "Device Characteristics", what its
/// bridges above it say of their serial numbers, and the name of the medium below it.
DiskRecord registryDisk(const RegistryEntry& entry, SMARTKind kind);

/// Requests so far, of the driver below the entry ("Statistics"); absent without one.
std::optional<std::int64_t> registryRequests(const RegistryEntry& entry);

/// Whether an ATA disk is at rest, by the power state of the entry or of the nearest one above that has any. NVMe disks
/// wake by themselves within milliseconds and have nothing that wears from it.
DiskPower registryPower(const RegistryEntry& entry, SMARTKind kind);

} // namespace meridal
