// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/disks/DiskReader.h"

#include "platform/linux/disks/SysfsDisk.h"

#include <algorithm>
#include <utility>

namespace meridal {

namespace {

namespace ata {
constexpr std::uint8_t identifyDevice = 0xEC;
constexpr std::uint8_t checkPowerMode = 0xE5;
constexpr std::uint8_t smart = 0xB0;
// features of it
constexpr std::uint8_t readData = 0xD0;
constexpr std::uint8_t readThresholds = 0xD1;
constexpr std::uint8_t returnStatus = 0xDA;
// what its LBA registers must hold, and what they hold when a threshold is exceeded
constexpr std::uint8_t signatureMid = 0x4F;
constexpr std::uint8_t signatureHigh = 0xC2;
constexpr std::uint8_t failingMid = 0xF4;
constexpr std::uint8_t failingHigh = 0x2C;
// power modes, in the count register
constexpr std::uint8_t standby = 0x00;
constexpr std::uint8_t standbyY = 0x01;
constexpr std::uint8_t cacheSpunDown = 0x40; ///< the spindle rests and a cache stands in for it
} // namespace ata

namespace nvme {
constexpr std::uint32_t getLogPage = 0x02;
constexpr std::uint32_t identify = 0x06;
constexpr std::uint32_t healthLog = 0x02;
constexpr std::uint32_t identifyController = 0x01;
constexpr std::uint32_t wholeController = 0xFFFF'FFFF;
constexpr std::uint32_t pageSize = 4096;
} // namespace nvme

AtaCommand smartCommand(std::uint8_t features)
{
    return {.command = ata::smart,
        .features = features,
        .count = 1,
        .lbaMid = ata::signatureMid,
        .lbaHigh = ata::signatureHigh};
}

std::span<const std::uint8_t> senseOf(const DeviceAnswer& answer)
{
    return std::span(answer.sense).first(std::min<std::size_t>(answer.senseLength, answer.sense.size()));
}

/// Path of its device node.
std::string nodeOf(const RootFolder& root, const DiskRecord& disk)
{
    std::string name = disk.path.substr(disk.path.rfind('/') + 1);
    std::replace(name.begin(), name.end(), '!', '/'); // how sysfs spells a name with a slash
    const auto uevent = root.read(disk.path + "/uevent");
    std::string node = valueOfKey(uevent.value_or(""), "DEVNAME", '=').value_or(name);
    if (node.starts_with("/dev/")) {
        node.erase(0, 5);
    }
    return root.path("dev/" + node).string();
}

} // namespace

DiskReader::DiskReader(const RootFolder& root, const DiskRecord& disk)
    : root_(root)
    , kind_(disk.kind)
    , powerState_(SysfsDisk(root, disk.path).deviceFolder() + "/power/runtime_status")
    , node_(nodeOf(root, disk))
{
}

void DiskReader::useShortCommands()
{
    size_ = PassThroughSize::Twelve;
    sizeIsKnown_ = true;
}

DiskPower DiskReader::powerMode()
{
    error_ = 0; // not every answer takes a question
    if (root_.readLine(powerState_) == "suspended") {
        return DiskPower::Asleep;
    }
    if (kind_ == SMARTKind::NVMe) {
        return DiskPower::Awake; // it wakes by itself within milliseconds and has nothing that wears from it
    }
    const auto registers = readRegisters({.command = ata::checkPowerMode});
    if (!registers) {
        return DiskPower::Unknown;
    }
    const bool asleep =
        registers->count == ata::standby || registers->count == ata::standbyY || registers->count == ata::cacheSpunDown;
    return asleep ? DiskPower::Asleep : DiskPower::Awake;
}

// ATA

DeviceAnswer DiskReader::run(const DeviceCommand& command)
{
    const DeviceAnswer answer = node_.run(command);
    error_ = answer.error;
    return answer;
}

DeviceAnswer DiskReader::send(const AtaCommand& command)
{
    DeviceAnswer answer = run(passThrough(command, size_));
    if (!sizeIsKnown_ && answer.error == 0 && refusesCommand(senseOf(answer))) {
        const PassThroughSize other =
            size_ == PassThroughSize::Sixteen ? PassThroughSize::Twelve : PassThroughSize::Sixteen;
        const DeviceAnswer second = run(passThrough(command, other));
        if (second.error == 0 && !refusesCommand(senseOf(second))) {
            size_ = other;
            answer = second;
        }
    }
    sizeIsKnown_ = sizeIsKnown_ || (answer.error == 0 && !refusesCommand(senseOf(answer)));
    return answer;
}

std::optional<SMARTPage> DiskReader::readSector(const AtaCommand& command)
{
    const DeviceAnswer answer = send(command);
    // Some adapters count wrongly what they have transferred: the page's checksum tells whether it is all there.
    if (!answer.isCarriedOut()) {
        return std::nullopt;
    }
    SMARTPage page;
    std::copy_n(answer.data.begin(), page.size(), page.begin());
    isWhole_ = answer.missing == 0;
    return page;
}

std::optional<AtaRegisters> DiskReader::readRegisters(AtaCommand command)
{
    constexpr std::uint8_t failed = 0x01;
    constexpr std::uint8_t ready = 0x40; // a bridge that has made the registers up leaves it out
    command.wantsRegisters = true;
    const DeviceAnswer answer = send(command);
    if (answer.error != 0) {
        return std::nullopt;
    }
    const auto registers = registersInSense(senseOf(answer));
    return registers && (registers->status & (failed | ready)) == ready ? registers : std::nullopt;
}

std::optional<bool> DiskReader::isFailing()
{
    const auto registers = readRegisters(smartCommand(ata::returnStatus));
    if (registers && registers->lbaMid == ata::signatureMid && registers->lbaHigh == ata::signatureHigh) {
        return false;
    }
    if (registers && registers->lbaMid == ata::failingMid && registers->lbaHigh == ata::failingHigh) {
        return true;
    }
    return std::nullopt;
}

std::optional<SMARTPage> DiskReader::readData()
{
    AtaCommand command = smartCommand(ata::readData);
    command.readsSector = true;
    return readSector(command);
}

std::optional<SMARTPage> DiskReader::readThresholds()
{
    AtaCommand command = smartCommand(ata::readThresholds);
    command.readsSector = true;
    return readSector(command);
}

std::optional<SMARTPage> DiskReader::identify()
{
    if (kind_ == SMARTKind::NVMe) {
        return readAdmin(nvme::identify, 0, nvme::identifyController, nvme::pageSize);
    }
    constexpr std::uint8_t checksumSignature = 0xA5;
    const auto page = readSector({.command = ata::identifyDevice, .count = 1, .readsSector = true});
    return page && (isWhole_ || (*page)[510] == checksumSignature) ? page : std::nullopt;
}

// NVMe

std::optional<SMARTPage> DiskReader::readAdmin(
    std::uint32_t opcode, std::uint32_t namespaceID, std::uint32_t cdw10, std::uint32_t length)
{
    DeviceCommand command;
    command.kind = DeviceCommand::Kind::NVMe;
    command.opcode = opcode;
    command.namespaceID = namespaceID;
    command.cdw10 = cdw10;
    command.dataLength = length;
    const DeviceAnswer answer = run(command);
    if (!answer.isGood()) {
        return std::nullopt;
    }
    SMARTPage page;
    std::copy_n(answer.data.begin(), page.size(), page.begin());
    return page;
}

std::optional<SMARTPage> DiskReader::readHealthLog()
{
    constexpr auto length = static_cast<std::uint32_t>(sizeof(SMARTPage));
    constexpr std::uint32_t words = length / 4 - 1; // counted from 0
    return readAdmin(nvme::getLogPage, nvme::wholeController, nvme::healthLog | words << 16, length);
}

} // namespace meridal
