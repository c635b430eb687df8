// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/MachineInfo.h"
#include "platform/linux/kernel/RootFolder.h"

#include <filesystem>

namespace meridal {

/// What the firmware (DMI or the device tree), the kernel and the distribution say of this machine. Everything but the
/// boot time is read when it is made.
class LinuxMachineInfo final : public MachineInfo {
public:
    explicit LinuxMachineInfo(const std::filesystem::path& root);

    std::optional<std::string> modelIdentifier() const override { return model_; }
    std::optional<std::string> serialNumber() const override { return serial_; }
    std::optional<std::string> vendorName() const override { return vendor_; }
    std::optional<std::string> firmwareVersion() const override { return firmware_; }
    std::optional<std::string> boardIdentifier() const override { return board_; }
    std::optional<std::string> processorName() const override { return processorName_; }
    std::optional<double> processorHertz() const override { return processorHertz_; }
    std::optional<double> maximumHertz() const override { return maximumHertz_; }
    std::optional<int> processorPackages() const override { return packages_; }
    int logicalProcessors() const override { return logicalProcessors_; }
    int physicalProcessors() const override { return physicalProcessors_; }
    std::optional<double> memoryBytes() const override { return memoryBytes_; }
    std::optional<std::string> networkHardwareAddress() const override { return hardwareAddress_; }
    /// 99.0.0, whatever the kernel's number is: release tests ask whether a facility of the other host can be expected,
    /// and every adapter here gives what the newest one gives.
    SystemRelease systemRelease() const override { return {.major = 99}; }
    std::string systemName() const override { return systemName_; }
    std::string kernelRelease() const override { return kernelRelease_; }
    std::string architecture() const override { return architecture_; }
    std::string hostName() const override;
    std::optional<std::string> virtualisation() const override;
    std::optional<double> bootTime() const override;
    std::optional<std::string> bootIdentifier() const override { return bootIdentifier_; }
    /// "FakeSMC", as on any machine of another vendor, unless the kernel drives a real SMC.
    bool hasService(std::string_view serviceClass) const override { return serviceClass == "FakeSMC" && !realSMC_; }
    std::optional<bool> chassisIsPortable() const override { return portable_; }
    std::string serviceManagerName() const override { return serviceManager_; }

private:
    void readFirmware();
    void readChassis();
    void readProcessors();
    void readNetwork();
    void readSystem();
    std::optional<std::string> firmwareText(std::string_view name) const;

    RootFolder root_;
    std::optional<std::string> model_;
    std::optional<std::string> serial_;
    std::optional<std::string> vendor_;
    std::optional<std::string> firmware_;
    std::optional<std::string> board_;
    std::optional<std::string> processorName_;
    std::optional<double> processorHertz_;
    std::optional<double> maximumHertz_;
    std::optional<int> packages_;
    int logicalProcessors_ = 1;
    int physicalProcessors_ = 1;
    std::optional<double> memoryBytes_;
    std::optional<std::string> hardwareAddress_;
    std::string systemName_;
    std::string kernelRelease_;
    std::string architecture_;
    std::optional<bool> portable_;
    bool realSMC_ = false;
    std::string serviceManager_;
    std::optional<std::string> bootIdentifier_;
};

} // namespace meridal
