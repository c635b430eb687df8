#include "platform/macos/network/CoreWLanInterface.h"

#import <CoreWLAN/CoreWLAN.h>

namespace meridal {

namespace {

CWInterface* defaultInterface() { return [[CWWiFiClient sharedWiFiClient] interface]; }

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

} // namespace meridal
