// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/disks/AtaPassThrough.h"

namespace meridal {

namespace {

constexpr std::uint8_t passThrough12 = 0xA1;
constexpr std::uint8_t passThrough16 = 0x85;
constexpr std::uint8_t protocolNoData = 3 << 1;
constexpr std::uint8_t protocolDataIn = 4 << 1;
/// From the device, in blocks, as many as the count register says.
constexpr std::uint8_t transferIn = 0x0E;
constexpr std::uint8_t checkCondition = 0x20; ///< return the registers

constexpr std::uint8_t fixedCurrent = 0x70;
constexpr std::uint8_t descriptorCurrent = 0x72;
constexpr std::uint8_t ataDescriptor = 0x09;
constexpr std::uint8_t ataDescriptorLength = 0x0C;
constexpr std::uint8_t illegalRequest = 0x05;

struct SenseCode {
    std::uint8_t key = 0;
    std::uint8_t code = 0;
    std::uint8_t qualifier = 0;
};

std::optional<SenseCode> codeOf(std::span<const std::uint8_t> sense)
{
    if (sense.size() >= 8 && (sense[0] & 0x7EU) == descriptorCurrent) {
        return SenseCode{static_cast<std::uint8_t>(sense[1] & 0x0FU), sense[2], sense[3]};
    }
    if (sense.size() >= 14 && (sense[0] & 0x7EU) == fixedCurrent) {
        return SenseCode{static_cast<std::uint8_t>(sense[2] & 0x0FU), sense[12], sense[13]};
    }
    return std::nullopt;
}

std::optional<AtaRegisters> registersInDescriptors(std::span<const std::uint8_t> sense)
{
    std::size_t place = 8;
    while (place + 2 <= sense.size()) {
        const std::size_t length = sense[place + 1] + std::size_t{2};
        if (sense[place] == ataDescriptor && sense[place + 1] == ataDescriptorLength
            && place + length <= sense.size()) {
            const auto found = sense.subspan(place, length);
            return AtaRegisters{
                .error = found[3], .count = found[5], .lbaMid = found[9], .lbaHigh = found[11], .status = found[13]};
        }
        place += length;
    }
    return std::nullopt;
}

} // namespace

DeviceCommand passThrough(const AtaCommand& command, PassThroughSize size)
{
    DeviceCommand scsi;
    scsi.dataLength = command.readsSector ? 512 : 0;
    const std::uint8_t protocol = command.readsSector ? protocolDataIn : protocolNoData;
    const auto flags = static_cast<std::uint8_t>(
        (command.readsSector ? transferIn : 0) | (command.wantsRegisters ? checkCondition : 0));
    if (size == PassThroughSize::Sixteen) {
        scsi.cdbLength = 16;
        scsi.cdb = {passThrough16, protocol, flags, 0, command.features, 0, command.count, 0, 0, 0, command.lbaMid, 0,
            command.lbaHigh, 0, command.command, 0};
    } else {
        scsi.cdbLength = 12;
        scsi.cdb = {passThrough12, protocol, flags, command.features, command.count, 0, command.lbaMid, command.lbaHigh,
            0, command.command, 0, 0};
    }
    return scsi;
}

std::optional<AtaRegisters> registersInSense(std::span<const std::uint8_t> sense)
{
    if (sense.size() >= 8 && (sense[0] & 0x7EU) == descriptorCurrent) {
        return registersInDescriptors(sense);
    }
    // "ATA pass through information available" is what makes these fields registers.
    const auto code = codeOf(sense);
    if (!code || code->code != 0x00 || code->qualifier != 0x1D) {
        return std::nullopt;
    }
    return AtaRegisters{
        .error = sense[3], .count = sense[6], .lbaMid = sense[10], .lbaHigh = sense[11], .status = sense[4]};
}

bool refusesCommand(std::span<const std::uint8_t> sense)
{
    constexpr std::uint8_t invalidOperation = 0x20;
    constexpr std::uint8_t invalidField = 0x24;
    const auto code = codeOf(sense);
    return code && code->key == illegalRequest && (code->code == invalidOperation || code->code == invalidField);
}

} // namespace meridal
