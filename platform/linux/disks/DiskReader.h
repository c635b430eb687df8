// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/Disks.h"
#include "platform/linux/disks/AtaPassThrough.h"
#include "platform/linux/disks/DeviceNode.h"
#include "platform/linux/kernel/RootFolder.h"

#include <optional>
#include <string>

namespace meridal {

/// Asks a disk by its device node: ATA through SG_IO (SAT pass-through, with commands of 16 bytes or, for bridges that do
/// not know these, 12), NVMe through admin ioctls. It can ask for nothing that changes the disk. Calls block as long as the
/// disk takes: for the process that has nothing else to do (DiskServer).
class DiskReader {
public:
    DiskReader(const RootFolder& root, const DiskRecord& disk);

    /// A disk that the system has suspended is not even opened, as that would resume it; of an ATA disk CHECK POWER MODE
    /// is asked, and Unknown is said of one that does not tell.
    DiskPower powerMode();
    /// ATA: IDENTIFY DEVICE. NVMe: the first 512 bytes of Identify Controller.
    std::optional<SMARTPage> identify();
    std::optional<SMARTPage> readData();
    std::optional<SMARTPage> readThresholds();
    std::optional<bool> isFailing();
    /// NVMe: SMART / Health Information.
    std::optional<SMARTPage> readHealthLog();

    /// Of what it was asked last; 0 when it has answered.
    int error() const { return error_; }
    bool usesShortCommands() const { return size_ == PassThroughSize::Twelve; }
    void useShortCommands();

private:
    DeviceAnswer run(const DeviceCommand& command);
    DeviceAnswer send(const AtaCommand& command);
    std::optional<SMARTPage> readSector(const AtaCommand& command);
    std::optional<AtaRegisters> readRegisters(AtaCommand command);
    std::optional<SMARTPage> readAdmin(
        std::uint32_t opcode, std::uint32_t namespaceID, std::uint32_t cdw10, std::uint32_t length);

    RootFolder root_;
    SMARTKind kind_;
    std::string powerState_; ///< of the device that the system may suspend, below the root; may not exist
    DeviceNode node_;
    PassThroughSize size_ = PassThroughSize::Sixteen;
    bool sizeIsKnown_ = false;
    int error_ = 0;
    bool isWhole_ = true; ///< all of the latest sector came, by the count of what is in between
};

} // namespace meridal
