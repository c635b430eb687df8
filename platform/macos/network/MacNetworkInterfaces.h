#pragma once

#include "platform/host/NetworkInterfaces.h"
#include "platform/macos/kernel/CFRef.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include <cstdint>
#include <map>
#include <string>

namespace meridal {

/// getifaddrs for names, addresses and flags; the interface MIB for counters, which are 64 bits wide nowhere else;
/// SystemConfiguration for kinds and names for people; the dynamic store for the primary service.
class MacNetworkInterfaces final : public NetworkInterfaces {
public:
    MacNetworkInterfaces();

    const NetworkReading* read() override;
    const NetworkReading* latest() const override { return hasReading_ ? &reading_ : nullptr; }

private:
    /// What SystemConfiguration knows of a piece of hardware.
    struct Hardware {
        InterfaceKind kind = InterfaceKind::Other;
        std::string displayName;
        std::optional<HardwareAddress> permanentAddress;
    };

    bool readInterfaces(std::map<std::string, InterfaceRecord>& interfaces);
    void readHardware();
    std::optional<PrimaryService> readPrimary() const;
    std::optional<PrimaryService> readPrimary(CFStringRef key, InterfaceAddress::Family family) const;
    void describe(InterfaceRecord& record) const;

    CFRef<SCDynamicStoreRef> store_;
    std::map<std::string, Hardware> hardware_; ///< by BSD name
    std::string knownNames_;                   ///< the names for which the hardware was read
    NetworkReading reading_;
    bool hasReading_ = false;
};

} // namespace meridal
