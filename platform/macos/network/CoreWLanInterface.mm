// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/network/MacAdapters.h"

#import <CoreWLAN/CoreWLAN.h>
#include <utility>

namespace meridal {

namespace {

CWInterface* defaultInterface() { return [[CWWiFiClient sharedWiFiClient] interface]; }

class CoreWLanInterface final : public WirelessInterface {
public:
    explicit CoreWLanInterface(std::shared_ptr<Limitations> limitations) : limitations_(std::move(limitations)) { }

    std::optional<WirelessIdentity> identity(const std::string& interfaceName) override;
    Result<void> togglePower() override;

private:
    std::shared_ptr<Limitations> limitations_;
};

} // namespace

std::optional<WirelessIdentity> CoreWLanInterface::identity(const std::string&)
{
    @autoreleasepool {
        CWInterface* const interface = defaultInterface();
        if (!interface) {
            return std::nullopt;
        }
        WirelessIdentity identity;
        if (NSString* const bssid = interface.bssid) {
            identity.bssid = bssid.UTF8String;
        }
        if (NSData* const ssid = interface.ssidData) { // a name may be any bytes
            identity.ssid.emplace(static_cast<const char*>(ssid.bytes), ssid.length);
        } else if (NSString* const name = interface.ssid) {
            identity.ssid = name.UTF8String;
        }
        if (interface.powerOn && interface.serviceActive && !identity.bssid) {
            limitations_->set("wifi-identity",
                "the system does not tell a daemon which Wi-Fi network this is; bandwidth is not divided by network");
        }
        return identity;
    }
}

Result<void> CoreWLanInterface::togglePower()
{
    @autoreleasepool {
        CWInterface* const interface = defaultInterface();
        if (!interface) {
            return unexpected(ErrorCode::NotFound, "this machine has no Wi-Fi");
        }
        NSError* error = nil;
        if (![interface setPower:!interface.powerOn error:&error]) {
            NSString* const words = error.localizedDescription;
            return unexpected(ErrorCode::Unavailable, words ? words.UTF8String : "Wi-Fi cannot be switched");
        }
        return {};
    }
}

std::unique_ptr<WirelessInterface> makeCoreWLanInterface(std::shared_ptr<Limitations> limitations)
{
    return std::make_unique<CoreWLanInterface>(std::move(limitations));
}

} // namespace meridal
