// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/kernel/Descriptor.h"

#include <array>
#include <cstdint>
#include <string>

namespace meridal {

/// One command to a device. To a disk: a SCSI command that reads or transfers nothing (SG_IO), or an NVMe admin command
/// that reads. To a HID device: a report to be had (HIDIOCGFEATURE, HIDIOCGINPUT). Plain memory, as it goes from one
/// process to another.
struct DeviceCommand {
    enum class Kind : std::uint32_t { SCSI, NVMe, HIDFeature, HIDInput };

    Kind kind = Kind::SCSI;
    std::uint32_t dataLength = 0; ///< bytes to read, at most those of DeviceAnswer::data
    std::uint32_t cdbLength = 0;
    std::array<std::uint8_t, 16> cdb = {};
    // NVMe
    std::uint32_t opcode = 0;
    std::uint32_t namespaceID = 0;
    std::uint32_t cdw10 = 0;
    // HID
    std::uint32_t report = 0; ///< its number, the first byte of the data; 0 when the device does not number them
};

/// What came back, likewise.
struct DeviceAnswer {
    std::int32_t error =
        0; ///< errno of the open or the ioctl, -1 when the process is gone; 0 = the command was carried out
    std::uint32_t status = 0;    ///< of SCSI or NVMe; 0 = good
    std::uint32_t transport = 0; ///< SCSI: host and driver status that tell of a failure; 0 = none
    std::uint32_t missing = 0;   ///< bytes of the data that did not come
    std::uint32_t senseLength = 0;
    std::array<std::uint8_t, 64> sense = {};
    std::array<std::uint8_t, 4096> data = {};

    bool isCarriedOut() const { return error == 0 && status == 0 && transport == 0; }
    bool isGood() const { return isCarriedOut() && missing == 0; }
};

/// A child process that has one device open and sends it commands. A disk that hangs holds the caller of its ioctl in the
/// kernel beyond the reach of any signal, and with it the end of that process: so it is not this process that calls.
/// The child is made by the first command and ends with the object, or with us.
class DeviceProcess {
public:
    explicit DeviceProcess(std::string node) : node_(std::move(node)) { }
    ~DeviceProcess() { stop(); }
    DeviceProcess(const DeviceProcess&) = delete;
    DeviceProcess& operator=(const DeviceProcess&) = delete;

    /// Carries out a command. Waits as long as the device takes; the wait itself can be killed.
    DeviceAnswer run(const DeviceCommand& command);
    /// Ends the child and closes the device.
    void stop();

private:
    bool start();

    std::string node_;
    Descriptor channel_;
    int child_ = -1;
};

} // namespace meridal
