// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/RegistryDisks.h"

#include "base/Value.h"
#include "platform/formats/ZAVIOKitUtilities.h"

#include <string>

namespace meridal {

namespace {

/// A property as text: numbers too, as some bridges keep their serial so.
std::optional<std::string> asText(const Value& value)
{
    if (value.is_string()) {
        return value.get<std::string>();
    }
    return value.is_number() ? std::optional(serialise(value)) : std::nullopt;
}

std::optional<std::string> textOf(const Value& dictionary, std::string_view key)
{
    const Value* value = find(dictionary, key);
    return value ? asText(*value) : std::nullopt;
}

std::optional<bool> isRotational(const Value& characteristics)
{
    const auto medium = text(characteristics, "Medium Type");
    return medium == "Solid State" ? std::optional(false) : medium == "Rotational" ? std::optional(true) : std::nullopt;
}

} // namespace

std::string_view capabilityOf(SMARTKind kind)
{
    return kind == SMARTKind::NVMe ? "NVMe SMART Capable" : "SMART Capable";
}

DiskRecord registryDisk(const RegistryEntry& entry, SMARTKind kind)
{
    const auto above = [&entry](std::string_view key, int levels) {
        return asText(ZAVIOKitUtilities::searchForKeyInParents(key, levels, entry));
    };
    const Value characteristics = entry.property("Device Characteristics");
    return {.kind = kind,
        .vendor = textOf(characteristics, "Vendor Name"),
        .model = textOf(characteristics, "Product Name"),
        .serial = textOf(characteristics, "Serial Number"),
        .unitSerial = above("INQUIRY Unit Serial Number", 8),
        .usbSerial = above("USB Serial Number", 10),
        .guid = above("GUID", 5),
        .blockDevice = asText(entry.searchChildren("BSD Name")),
        .rotational = isRotational(characteristics)};
}

std::optional<std::int64_t> registryRequests(const RegistryEntry& entry)
{
    const Value counts = entry.searchChildren("Statistics");
    const auto reads = integer(counts, "Operations (Read)");
    const auto writes = integer(counts, "Operations (Write)");
    return reads && writes ? std::optional(*reads + *writes) : std::nullopt;
}

DiskPower registryPower(const RegistryEntry& entry, SMARTKind kind)
{
    constexpr int levels = 3;
    /// Drivers of disks count their states up to active: below it come idle, then standby, then sleep.
    constexpr std::int64_t statesOfAnAwakeDisk = 1;
    if (kind == SMARTKind::NVMe) {
        return DiskPower::Awake;
    }
    Value power = entry.property("IOPowerManagement");
    if (power.is_null()) {
        power = ZAVIOKitUtilities::searchForKeyInParents("IOPowerManagement", levels, entry);
    }
    const auto current = integer(power, "CurrentPowerState");
    const auto highest = integer(power, "MaxPowerState");
    // A driver without states has none in which the disk would be asleep.
    return current && highest && *current < *highest - statesOfAnAwakeDisk ? DiskPower::Asleep : DiskPower::Awake;
}

} // namespace meridal
