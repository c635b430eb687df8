// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/network/CoreWLanCalls.h"
#include "platform/macos/network/MacAdapters.h"

#include "base/ThreadedSlowWork.h"

#import <CoreWLAN/CoreWLAN.h>
#include <utility>

namespace meridal {

namespace {

CWInterface* defaultInterface() { return [[CWWiFiClient sharedWiFiClient] interface]; }

std::optional<std::string> utf8Of(NSString* words)
{
    return words.UTF8String ? std::optional<std::string>(words.UTF8String) : std::nullopt;
}

std::optional<WirelessState> readState()
{
    @autoreleasepool {
        CWInterface* const interface = defaultInterface();
        if (!interface) {
            return std::nullopt;
        }
        WirelessState state{.bssid = utf8Of(interface.bssid),
            .ssid = utf8Of(interface.ssid),
            .powered = interface.powerOn == YES,
            .inService = interface.serviceActive == YES};
        if (NSData* const bytes = interface.ssidData) {
            state.ssidBytes.emplace(static_cast<const char*>(bytes.bytes), bytes.length);
        }
        return state;
    }
}

std::optional<std::string> setPower(bool on)
{
    @autoreleasepool {
        NSError* error = nil;
        if ([defaultInterface() setPower:on error:&error]) {
            return std::nullopt;
        }
        return utf8Of(error.localizedDescription).value_or("");
    }
}

} // namespace

std::unique_ptr<WirelessInterface> makeCoreWLanInterface(std::shared_ptr<Limitations> limitations)
{
    return makeCoreWLanInterface(
        {.state = readState, .setPower = setPower}, std::move(limitations), std::make_shared<ThreadedSlowWork>(1));
}

} // namespace meridal
