// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/SMARTDevice.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// A disk that has health data, as it announced itself. Text is the device's own, with blanks around it as a rule.
struct DiskRecord {
    std::string path = {}; ///< its place in the machine; tells it from all others as long as it is there
    SMARTKind kind = SMARTKind::ATA;
    std::optional<std::string> vendor = {};
    std::optional<std::string> model = {};
    std::optional<std::string> serial = {};
    std::optional<std::string> unitSerial = {};  ///< of the SCSI unit that it hangs on
    std::optional<std::string> usbSerial = {};   ///< of the USB device that it hangs on
    std::optional<std::string> guid = {};        ///< of the bridge that it hangs on, as some call themselves
    std::optional<std::string> blockDevice = {}; ///< "sda", "nvme0n1", "disk0"
    std::optional<bool> rotational = {};         ///< as far as what it hangs on knows
};

/// The disks of this machine. Finding them opens none of them. Main queue only.
/// macOS: the I/O registry, the SMART plug-ins. Linux: sysfs, and what udev knows of each device.
class Disks {
public:
    /// Destroying it ends the observation.
    class Observation {
    public:
        virtual ~Observation() = default;
    };

    virtual ~Disks() = default;
    /// All that have health data, ATA ones (also those behind USB) before NVMe ones, in an order that stays.
    virtual std::vector<DiskRecord> disks() = 0;
    /// How many requests everybody has sent it so far, reads and writes, without questions about its health. Absent where
    /// the system does not count.
    virtual std::optional<std::int64_t> requests(const DiskRecord& disk) = 0;
    /// Its health interface; null when it has none. Opens nothing.
    virtual std::unique_ptr<SMARTDevice> device(const DiskRecord& disk) = 0;
    /// Calls the handler on the main queue whenever a disk or one of its media may have come or gone.
    [[nodiscard]] virtual std::unique_ptr<Observation> observe(std::function<void()> changed) = 0;
};

} // namespace meridal
