// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/disks/MacAdapters.h"

#include "platform/DriveDatabaseFile.h"
#include "platform/formats/RegistryDisks.h"
#include "platform/macos/kernel/IORegistryObject.h"

#include <IOKit/IOCFPlugIn.h>
#include <IOKit/storage/ata/ATASMARTLib.h>
#include <IOKit/storage/nvme/NVMeSMARTLibExternal.h>

#include <algorithm>
#include <array>
#include <utility>

namespace meridal {

namespace {

static_assert(sizeof(ATASMARTData) == sizeof(SMARTPage));
static_assert(sizeof(ATASMARTDataThresholds) == sizeof(SMARTPage));
static_assert(sizeof(NVMeSMARTData) == sizeof(SMARTPage));

template <typename Interface>
Interface** interfaceOf(IOCFPlugInInterface** plugin, CFUUIDRef identifier)
{
    Interface** found = nullptr;
    const HRESULT result =
        (*plugin)->QueryInterface(plugin, CFUUIDGetUUIDBytes(identifier), reinterpret_cast<LPVOID*>(&found));
    return result == S_OK ? found : nullptr;
}

/// Calls one of the reading functions with a zeroed buffer; absent when it fails.
template <typename Record, typename Interface>
std::optional<SMARTPage> readInto(Interface** interface, IOReturn (*Interface::*read)(void*, Record*))
{
    if (!interface) {
        return std::nullopt;
    }
    SMARTPage page{};
    const auto function = (*interface)->*read;
    if (function(interface, reinterpret_cast<Record*>(page.data())) != kIOReturnSuccess) {
        return std::nullopt;
    }
    return page;
}

/// A disk by the SMART plug-in of its driver. open() makes the plug-in and asks it for the interface, close() lets go of
/// both: an open plug-in keeps others out.
class MacSMARTDevice final : public SMARTDevice {
public:
    MacSMARTDevice(IORegistryObject service, SMARTKind kind, std::shared_ptr<Limitations> limitations)
        : service_(std::move(service)), kind_(kind), limitations_(std::move(limitations))
    {
    }
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

    IORegistryObject service_;
    SMARTKind kind_;
    std::shared_ptr<Limitations> limitations_;
    IOCFPlugInInterface** plugin_ = nullptr;
    bool denied_ = false;
    IOATASMARTInterface** ata_ = nullptr;
    IONVMeSMARTInterface** nvme_ = nullptr;
};

} // namespace

bool MacSMARTDevice::open()
{
    if (isSupported()) {
        return true;
    }
    SInt32 score = 0;
    const CFUUIDRef client = kind_ == SMARTKind::NVMe ? kIONVMeSMARTUserClientTypeID : kIOATASMARTUserClientTypeID;
    // Another client that holds the disk is a normal outcome: the next turn tries again.
    const IOReturn result =
        IOCreatePlugInInterfaceForService(service_.native(), client, kIOCFPlugInInterfaceID, &plugin_, &score);
    denied_ = result == kIOReturnNotPrivileged || result == kIOReturnNotPermitted;
    if (result != kIOReturnSuccess || !plugin_) {
        plugin_ = nullptr;
        return false;
    }
    if (kind_ == SMARTKind::NVMe) {
        nvme_ = interfaceOf<IONVMeSMARTInterface>(plugin_, kIONVMeSMARTInterfaceID);
    } else {
        ata_ = interfaceOf<IOATASMARTInterface>(plugin_, kIOATASMARTInterfaceID);
    }
    if (!isSupported()) {
        close();
    }
    return isSupported();
}

void MacSMARTDevice::close()
{
    if (ata_) {
        (*ata_)->Release(ata_);
        ata_ = nullptr;
    }
    if (nvme_) {
        (*nvme_)->Release(nvme_);
        nvme_ = nullptr;
    }
    if (plugin_) {
        IODestroyPlugInInterface(plugin_);
        plugin_ = nullptr;
    }
}

std::string MacSMARTDevice::driveDatabase() const
{
    return readDriveDatabase({"/opt/homebrew/etc/smart_drivedb.h", "/usr/local/etc/smart_drivedb.h",
               "/opt/local/etc/smart_drivedb.h"})
        + readDriveDatabase({"/opt/homebrew/share/smartmontools/drivedb.h", "/usr/local/share/smartmontools/drivedb.h",
            "/opt/local/share/smartmontools/drivedb.h"});
}

bool MacSMARTDevice::enableOperations(bool enabled)
{
    return ata_ && (*ata_)->SMARTEnableDisableOperations(ata_, enabled ? 1 : 0) == kIOReturnSuccess;
}

bool MacSMARTDevice::enableAutosave(bool enabled)
{
    return ata_ && (*ata_)->SMARTEnableDisableAutosave(ata_, enabled ? 1 : 0) == kIOReturnSuccess;
}

std::optional<bool> MacSMARTDevice::isFailing()
{
    Boolean exceeded = 0;
    if (!ata_ || (*ata_)->SMARTReturnStatus(ata_, &exceeded) != kIOReturnSuccess) {
        return std::nullopt;
    }
    return exceeded != 0;
}

std::optional<SMARTPage> MacSMARTDevice::readData() { return readInto(ata_, &IOATASMARTInterface::SMARTReadData); }

std::optional<SMARTPage> MacSMARTDevice::readThresholds()
{
    return readInto(ata_, &IOATASMARTInterface::SMARTReadDataThresholds);
}

std::optional<SMARTPage> MacSMARTDevice::identify()
{
    SMARTPage page{};
    UInt32 size = 0;
    if (!ata_
        || (*ata_)->GetATAIdentifyData(ata_, page.data(), static_cast<UInt32>(page.size()), &size)
            != kIOReturnSuccess) {
        return std::nullopt;
    }
    return page;
}

std::optional<SMARTPage> MacSMARTDevice::readHealthLog()
{
    return readInto(nvme_, &IONVMeSMARTInterface::SMARTReadData);
}

std::optional<SMARTPage> MacSMARTDevice::identifyController()
{
    constexpr std::uint32_t controller = 0; // the namespace that stands for it
    std::array<std::uint8_t, 4096> data{};
    if (!nvme_ || (*nvme_)->GetIdentifyData(nvme_, data.data(), controller) != kIOReturnSuccess) {
        return std::nullopt;
    }
    SMARTPage page;
    std::copy_n(data.begin(), page.size(), page.begin());
    return page;
}

DiskPower MacSMARTDevice::powerMode()
{
    const DiskPower power = registryPower(service_, kind_);
    if (power == DiskPower::Asleep) {
        limitations_->set("disk-sleep",
            "a disk is taken to sleep, and not read, because its driver is two or more states below its highest: no "
            "interface tells for certain");
    }
    return power;
}

std::unique_ptr<SMARTDevice> makeMacSMARTDevice(
    IORegistryObject service, SMARTKind kind, std::shared_ptr<Limitations> limitations)
{
    return std::make_unique<MacSMARTDevice>(std::move(service), kind, std::move(limitations));
}

} // namespace meridal
