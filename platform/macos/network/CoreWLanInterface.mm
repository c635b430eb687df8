// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/network/MacAdapters.h"

#include "base/ThreadedSlowWork.h"
#include "platform/formats/AskedAside.h"

#import <CoreWLAN/CoreWLAN.h>
#include <utility>

namespace meridal {

namespace {

CWInterface* defaultInterface() { return [[CWWiFiClient sharedWiFiClient] interface]; }

/// Each of these calls goes to another process and waits for it.
std::optional<WirelessIdentity> readIdentity(Limitations& limitations)
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
            limitations.set("wifi-identity",
                "the system does not tell a daemon which Wi-Fi network this is; bandwidth is not divided by network");
        }
        return identity;
    }
}

class CoreWLanInterface final : public WirelessInterface {
public:
    CoreWLanInterface(std::shared_ptr<Limitations> limitations, std::shared_ptr<SlowWork> work)
        : identity_(std::move(work), [limitations = std::move(limitations)] { return readIdentity(*limitations); })
    {
    }

    /// Late, it says nothing of the network. That there is no Wi-Fi interface would end the network's record.
    std::optional<WirelessIdentity> identity(const std::string&) override
    {
        return identity_.ask().value_or(WirelessIdentity{});
    }
    Result<void> togglePower() override;

private:
    AskedAside<std::optional<WirelessIdentity>> identity_;
};

} // namespace

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
    return std::make_unique<CoreWLanInterface>(std::move(limitations), std::make_shared<ThreadedSlowWork>(1));
}

} // namespace meridal
