// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace meridal {

struct SystemRelease {
    int major = 0;
    int minor = 0;
    int bugfix = 0;
    bool operator==(const SystemRelease&) const = default;
};

/// What this machine and its system are. Read once where it cannot change. Text is raw bytes of the firmware.
/// macOS: sysctl and the platform expert. Linux: DMI under /sys/class/dmi/id (or the device tree), os-release, /proc.
class MachineInfo {
public:
    virtual ~MachineInfo() = default;

    virtual std::optional<std::string> modelIdentifier() const = 0; ///< "MacBookPro18,3"; "ThinkPad X1 Carbon Gen 9"
    virtual std::optional<std::string> serialNumber() const = 0;    ///< root only on Linux
    virtual std::optional<std::string> vendorName() const = 0;
    virtual std::optional<std::string> firmwareVersion() const = 0;
    virtual std::optional<std::string> boardIdentifier() const = 0;
    virtual std::optional<std::string> processorName() const = 0;
    virtual std::optional<double> processorHertz() const = 0;
    virtual std::optional<double> maximumHertz() const = 0; ///< the fastest that a processor may run
    virtual int logicalProcessors() const = 0;
    virtual int physicalProcessors() const = 0;
    virtual std::optional<int> processorPackages() const = 0; ///< chips in sockets
    virtual std::optional<double> memoryBytes() const = 0;
    /// Hardware address of the machine's first own network interface, "aa:bb:cc:dd:ee:ff".
    virtual std::optional<std::string> networkHardwareAddress() const = 0;

    /// The release that version tests compare. Linux reports one on which every "this release or later" is true.
    virtual SystemRelease systemRelease() const = 0;
    virtual std::string systemName() const = 0;    ///< for people: "Debian GNU/Linux 12 (bookworm)"
    virtual std::string kernelRelease() const = 0; ///< "6.1.0-18-amd64"
    virtual std::string architecture() const = 0;  ///< of the kernel: "x86_64", "arm64"
    virtual std::string hostName() const = 0;      ///< as it is now; empty when there is none
    /// What this is no machine but a part of: "docker", "kvm", "vm-other" when only that is known. Absent on real hardware.
    virtual std::optional<std::string> virtualisation() const = 0;

    /// s since 1970 at which the system booted, as the kernel now tells it. Absent when it cannot be read.
    /// It moves when the clock is corrected: the wall clock minus this is the true time since the boot at any moment.
    virtual std::optional<double> bootTime() const = 0;
    /// A text that the kernel makes up at each boot and keeps until the next. Absent when it cannot be read.
    virtual std::optional<std::string> bootIdentifier() const = 0;
    /// Whether a driver service of that class is present ("FakeSMC", an emulated SMC).
    virtual bool hasService(std::string_view serviceClass) const = 0;
    /// What the firmware says of the chassis, where the model name does not tell: true for laptops. Absent if unsaid.
    virtual std::optional<bool> chassisIsPortable() const = 0;
    /// Start of the name of the process that starts services: "launchd", "systemd".
    virtual std::string serviceManagerName() const = 0;
};

} // namespace meridal
