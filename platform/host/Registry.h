#pragma once

#include "base/Value.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// One thing in the machine's tree of devices and drivers. Properties are read when they are asked for and carry macOS's
/// names on every host; text is raw bytes of the device. What has gone from the machine has no properties.
class RegistryEntry {
public:
    virtual ~RegistryEntry() = default;
    /// Tells it from all others as long as it is there.
    virtual std::string path() const = 0;
    /// Null where it has none of that name.
    virtual Value property(std::string_view key) const = 0;
    /// The property of this entry, or of the first one below it that has it. Null when none has.
    virtual Value searchChildren(std::string_view key) const = 0;
    /// What it hangs on; null at the root.
    virtual std::shared_ptr<const RegistryEntry> parent() const = 0;
};

using RegistryEntryPtr = std::shared_ptr<const RegistryEntry>;

/// The machine's tree of devices, as far as collectors look for things in it. Asking it opens no device. Main queue
/// only. macOS: the I/O registry. Linux: sysfs, and what udev knows of each device.
///
/// Of disks: "SMART Capable" (ATA, also behind USB) and "NVMe SMART Capable" are true for those that have health data.
/// Such an entry has "Device Characteristics" ("Vendor Name", "Product Name", "Serial Number", "Medium Type" with "Solid
/// State" or "Rotational"), and "BSD Name", the block device's name, in itself or below; where the system counts, "Statistics" likewise
/// ("Operations (Read)", "Operations (Write)": requests so far, without questions about health); parents may have "USB Serial
/// Number", "INQUIRY Unit Serial Number" and "GUID".
class Registry {
public:
    /// Destroying it ends the observation.
    class Observation {
    public:
        virtual ~Observation() = default;
    };

    virtual ~Registry() = default;
    /// All entries whose property of that name is true, in an order that stays.
    virtual std::vector<RegistryEntryPtr> entriesWithTrue(std::string_view property) = 0;
    /// Calls the handler on the main queue whenever a disk or one of its media may have come or gone.
    [[nodiscard]] virtual std::unique_ptr<Observation> observeDisks(std::function<void()> changed) = 0;
};

} // namespace meridal
