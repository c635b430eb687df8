// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/SMARTDevice.h"
#include "platform/linux/disks/AtaPassThrough.h"
#include "platform/linux/kernel/DeviceProcess.h"
#include "platform/linux/kernel/RootFolder.h"

#include <optional>
#include <string>

namespace meridal {

/// Where a disk is found on this machine.
struct DiskLocation {
    std::string node;       ///< path of the device node
    std::string powerState; ///< of the device that the system may suspend, below the root; may not exist
    bool spins = true;      ///< also where it is not known
    bool insist = false;    ///< reads it even where nobody can tell whether that spins it up
};

/// A disk by its device node: ATA through SG_IO (SAT pass-through, with commands of 16 bytes or, for bridges that do not
/// know these, 12), NVMe through admin ioctls.
class LinuxSMARTDevice final : public SMARTDevice {
public:
    LinuxSMARTDevice(RootFolder root, SMARTKind kind, DiskLocation location);

    /// A disk that the system has suspended is not even opened, as that would resume it; of an ATA disk CHECK POWER MODE
    /// is asked.
    DiskPower powerMode() override;
    bool open() override { return true; }
    void close() override { process_.stop(); }
    bool isDenied() const override { return denied_; }
    std::string driveDatabase() const override;

    bool enableOperations(bool enabled) override;
    bool enableAutosave(bool enabled) override;
    std::optional<bool> isFailing() override;
    std::optional<SMARTPage> readData() override;
    std::optional<SMARTPage> readThresholds() override;
    std::optional<SMARTPage> identify() override;
    std::optional<SMARTPage> readHealthLog() override;
    std::optional<SMARTPage> identifyController() override;

private:
    DeviceAnswer run(const DeviceCommand& command);
    DeviceAnswer send(const AtaCommand& command);
    std::optional<SMARTPage> readSector(const AtaCommand& command);
    std::optional<AtaRegisters> readRegisters(AtaCommand command);
    std::optional<SMARTPage> readAdmin(
        std::uint32_t opcode, std::uint32_t namespaceID, std::uint32_t cdw10, std::uint32_t length);

    RootFolder root_;
    SMARTKind kind_;
    DiskLocation location_;
    DeviceProcess process_;
    PassThroughSize size_ = PassThroughSize::Sixteen;
    bool sizeIsKnown_ = false;
    bool denied_ = false;
    bool isWhole_ = true; ///< all of the latest sector came, by the count of what is in between
};

} // namespace meridal
