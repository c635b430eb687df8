// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/network/MacAdapters.h"

#include "platform/macos/kernel/CFRef.h"

#include <SystemConfiguration/SystemConfiguration.h>

namespace meridal {

namespace {

Unexpected systemFailure(const char* what)
{
    const int code = SCError();
    return unexpected(code == kSCStatusAccessError ? ErrorCode::NotPermitted : ErrorCode::Unavailable,
        std::string(what) + ": " + SCErrorString(code));
}

class MacNetworkConfiguration final : public NetworkConfiguration {
public:
    Result<void> refreshLease(const std::string& interfaceName) override;
    /// A set that does not exist is refused: written all the same, it would leave the machine without a current one.
    Result<void> setNetworkSet(const std::string& identifier) override;
};

} // namespace

Result<void> MacNetworkConfiguration::refreshLease(const std::string& interfaceName)
{
    const CFRef<CFArrayRef> list(SCNetworkInterfaceCopyAll());
    bool found = false;
    bool refreshed = false;
    for (CFIndex i = 0; list && i < CFArrayGetCount(list.get()); ++i) {
        const auto interface = static_cast<SCNetworkInterfaceRef>(CFArrayGetValueAtIndex(list.get(), i));
        if (textOf(SCNetworkInterfaceGetBSDName(interface)) == interfaceName) {
            found = true;
            refreshed = SCNetworkInterfaceForceConfigurationRefresh(interface) || refreshed;
        }
    }
    if (!found) {
        return unexpected(ErrorCode::NotFound, "there is no such interface");
    }
    return refreshed ? Result<void>() : systemFailure("the interface cannot be refreshed");
}

Result<void> MacNetworkConfiguration::setNetworkSet(const std::string& identifier)
{
    const CFRef<SCPreferencesRef> preferences(
        SCPreferencesCreate(kCFAllocatorDefault, CFSTR("MeridalDaemon"), nullptr));
    const CFRef<CFStringRef> name = stringOf(identifier);
    if (!preferences) {
        return systemFailure("the network preferences cannot be opened");
    }
    const CFRef<SCNetworkSetRef> set(name ? SCNetworkSetCopy(preferences.get(), name.get()) : nullptr);
    if (!set) {
        return unexpected(ErrorCode::NotFound, "there is no such network set");
    }
    const CFRef<CFStringRef> path(
        CFStringCreateWithFormat(kCFAllocatorDefault, nullptr, CFSTR("/%@/%@"), kSCPrefSets, name.get()));
    if (!SCPreferencesSetValue(preferences.get(), kSCPrefCurrentSet, path.get())
        || !SCPreferencesCommitChanges(preferences.get()) || !SCPreferencesApplyChanges(preferences.get())) {
        return systemFailure("the network set cannot be changed");
    }
    return {};
}

std::unique_ptr<NetworkConfiguration> makeMacNetworkConfiguration()
{
    return std::make_unique<MacNetworkConfiguration>();
}

} // namespace meridal
