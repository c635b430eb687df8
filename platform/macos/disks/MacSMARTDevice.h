#pragma once

#include "platform/host/SMARTDevice.h"
#include "platform/macos/kernel/IORegistryObject.h"

#include <IOKit/IOCFPlugIn.h>
#include <IOKit/storage/ata/ATASMARTLib.h>
#include <IOKit/storage/nvme/NVMeSMARTLibExternal.h>

namespace meridal {

/// A disk by the SMART plug-in of its driver. open() makes the plug-in and asks it for the interface, close() lets go of
/// both: an open plug-in keeps others out.
class MacSMARTDevice final : public SMARTDevice {
public:
    MacSMARTDevice(IOObjectOwner service, SMARTKind kind) : service_(std::move(service)), kind_(kind) { }
    ~MacSMARTDevice() override { MacSMARTDevice::close(); }
    MacSMARTDevice(const MacSMARTDevice&) = delete;
    MacSMARTDevice& operator=(const MacSMARTDevice&) = delete;

    /// From the power state that the disk's driver publishes: the disk itself is not asked.
    DiskPower powerMode() override;
    bool open() override;
    void close() override;
    bool isDenied() const override { return denied_; }
    /// Of smartmontools from Homebrew, its own installer or MacPorts.
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
    bool isSupported() const { return ata_ != nullptr || nvme_ != nullptr; }

    IOObjectOwner service_;
    SMARTKind kind_;
    IOCFPlugInInterface** plugin_ = nullptr;
    bool denied_ = false;
    IOATASMARTInterface** ata_ = nullptr;
    IONVMeSMARTInterface** nvme_ = nullptr;
};

class MacSMARTDevices final : public SMARTDevices {
public:
    /// Of an entry of MacRegistry.
    std::unique_ptr<SMARTDevice> deviceForEntry(const RegistryEntry& entry, SMARTKind kind) override;
};

} // namespace meridal
