// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/kernel/Descriptor.h"

#include <array>
#include <cstdint>
#include <string>

namespace meridal {

/// One command to a disk: a SCSI command that reads or transfers nothing (SG_IO), or an NVMe admin command that reads.
struct DeviceCommand {
    enum class Kind { SCSI, NVMe };

    Kind kind = Kind::SCSI;
    std::uint32_t dataLength = 0; ///< bytes to read, at most those of DeviceAnswer::data
    std::uint32_t cdbLength = 0;
    std::array<std::uint8_t, 16> cdb = {};
    // NVMe
    std::uint32_t opcode = 0;
    std::uint32_t namespaceID = 0;
    std::uint32_t cdw10 = 0;
};

/// What came back.
struct DeviceAnswer {
    std::int32_t error = 0;      ///< errno of the open or the ioctl; 0 = the command was carried out
    std::uint32_t status = 0;    ///< of SCSI or NVMe; 0 = good
    std::uint32_t transport = 0; ///< SCSI: host and driver status that tell of a failure; 0 = none
    std::uint32_t missing = 0;   ///< bytes of the data that did not come
    std::uint32_t senseLength = 0;
    std::array<std::uint8_t, 64> sense = {};
    std::array<std::uint8_t, 4096> data = {};

    bool isCarriedOut() const { return error == 0 && status == 0 && transport == 0; }
    bool isGood() const { return isCarriedOut() && missing == 0; }
};

/// A disk's node, opened by the first command. A disk that hangs holds the caller in the kernel, beyond the reach of any
/// signal: for a process that has nothing else to do.
class DeviceNode {
public:
    explicit DeviceNode(std::string path) : path_(std::move(path)) { }
    /// Carries out a command. Waits as long as the disk takes.
    DeviceAnswer run(DeviceCommand command);

private:
    std::string path_;
    Descriptor device_;
};

} // namespace meridal
