#pragma once

#include "platform/host/MachineInfo.h"

namespace meridal {

/// sysctl, the platform expert in the I/O registry, and the process information's system version.
class MacMachineInfo final : public MachineInfo {
public:
    MacMachineInfo();

    std::optional<std::string> modelIdentifier() const override { return model_; }
    std::optional<std::string> serialNumber() const override { return serial_; }
    std::optional<std::string> boardIdentifier() const override { return board_; } ///< Intel machines only
    std::optional<std::string> processorName() const override;
    std::optional<double> processorHertz() const override; ///< Intel machines only
    int logicalProcessors() const override;
    int physicalProcessors() const override;
    std::optional<double> memoryBytes() const override;
    std::optional<std::string> networkHardwareAddress() const override;

    SystemRelease systemRelease() const override { return release_; }
    std::string systemName() const override;
    std::optional<double> bootTime() const override;
    std::optional<std::string> bootIdentifier() const override;
    bool hasService(std::string_view serviceClass) const override;
    /// True where a smart battery is built in: the models of Apple silicon no longer say "MacBook". Absent otherwise.
    std::optional<bool> chassisIsPortable() const override;
    std::string serviceManagerName() const override { return "launchd"; }

private:
    std::optional<std::string> model_;
    std::optional<std::string> serial_;
    std::optional<std::string> board_;
    SystemRelease release_;
};

} // namespace meridal
