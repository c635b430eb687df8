// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace meridal {

/// What a disk's health interface gives at a time: one sector.
using SMARTPage = std::array<std::uint8_t, 512>;

enum class SMARTKind { ATA, NVMe };

/// Whether a disk can be asked without spinning it up.
enum class DiskPower {
    Awake,
    Asleep,  ///< in standby or sleep, or suspended by the system
    Unknown, ///< it spins, and what lies between it and us cannot say: to be left alone
};

/// One disk's health interface: ATA SMART, or NVMe's. Calls block as long as the disk takes, which may be minutes for
/// one that hangs. One queue at a time, any queue. A call that fails answers absent or false.
/// macOS: the SMART plug-ins of the disk's driver. Linux: SG_IO and NVMe ioctls, made in a process of their own.
class SMARTDevice {
public:
    virtual ~SMARTDevice() = default;

    /// Never wakes it. To be asked first, as everything below may.
    virtual DiskPower powerMode() = 0;
    /// Begins to talk to the disk; false when it does not talk about its health, or not to us.
    virtual bool open() = 0;
    /// Lets go of the disk, whatever opened it.
    virtual void close() = 0;
    /// Whether what it was asked last failed for want of rights, and not because of the disk.
    virtual bool isDenied() const = 0;
    /// The text of this machine's database of drives, in the form of smartmontools', what the administrator has added to
    /// it first; empty without one. Read anew each time, some hundred KB.
    virtual std::string driveDatabase() const = 0;

    // ATA
    virtual bool enableOperations(bool enabled) = 0;
    virtual bool enableAutosave(bool enabled) = 0;
    /// RETURN STATUS: whether the disk has found itself to be failing.
    virtual std::optional<bool> isFailing() = 0;
    virtual std::optional<SMARTPage> readData() = 0;
    virtual std::optional<SMARTPage> readThresholds() = 0;
    /// IDENTIFY DEVICE. ATA's words have their low byte first, so texts come with each pair of characters swapped.
    virtual std::optional<SMARTPage> identify() = 0;

    // NVMe
    /// SMART / Health Information, log page 02h.
    virtual std::optional<SMARTPage> readHealthLog() = 0;
    /// The first 512 of the 4,096 bytes of Identify Controller.
    virtual std::optional<SMARTPage> identifyController() = 0;
};

} // namespace meridal
