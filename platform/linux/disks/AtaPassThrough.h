// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/disks/DeviceNode.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace meridal {

/// The part of an ATA command's registers that health data needs.
struct AtaCommand {
    std::uint8_t command = 0;
    std::uint8_t features = 0;
    std::uint8_t count = 0;
    std::uint8_t lbaMid = 0;
    std::uint8_t lbaHigh = 0;
    bool readsSector = false;
    bool wantsRegisters = false; ///< have them returned in the sense data
};

/// The registers after a command.
struct AtaRegisters {
    std::uint8_t error = 0;
    std::uint8_t count = 0;
    std::uint8_t lbaMid = 0;
    std::uint8_t lbaHigh = 0;
    std::uint8_t status = 0;
};

enum class PassThroughSize { Twelve, Sixteen };

/// The command inside a SCSI command (SAT: ATA PASS-THROUGH).
DeviceCommand passThrough(const AtaCommand& command, PassThroughSize size);

/// The registers in sense data, of descriptor or fixed format. Absent where they are not in it.
std::optional<AtaRegisters> registersInSense(std::span<const std::uint8_t> sense);

/// Whether sense data says that the device does not know such a command.
bool refusesCommand(std::span<const std::uint8_t> sense);

} // namespace meridal
