// SPDX-License-Identifier: Apache-2.0
#include <SystemConfiguration/SystemConfiguration.h>

#include "simulated/mac/Ledger.h"
#include "simulated/mac/Objects.h"
#include "simulated/mac/SystemConfiguration.h"

#include <utility>

using namespace meridal::test;

const CFStringRef kSCNetworkInterfaceTypeBluetooth = constantString("Bluetooth");
const CFStringRef kSCNetworkInterfaceTypeBond = constantString("Bond");
const CFStringRef kSCNetworkInterfaceTypeEthernet = constantString("Ethernet");
const CFStringRef kSCNetworkInterfaceTypeIEEE80211 = constantString("IEEE80211");
const CFStringRef kSCNetworkInterfaceTypeModem = constantString("Modem");
const CFStringRef kSCNetworkInterfaceTypePPP = constantString("PPP");
const CFStringRef kSCNetworkInterfaceTypeVLAN = constantString("VLAN");
const CFStringRef kSCNetworkInterfaceTypeWWAN = constantString("WWAN");
const CFStringRef kSCPrefCurrentSet = constantString("CurrentSet");
const CFStringRef kSCPrefSets = constantString("Sets");

namespace {

/// Whether a call goes well; else its error is the system's last one.
bool succeeds(const char* function)
{
    const auto fault = Ledger::current().call(function);
    SystemConfiguration::current().error = fault.value_or(kSCStatusOK);
    return !fault;
}

/// What is known of an interface, which owns it.
CFStringRef factOf(SCNetworkInterfaceRef interface, const char* key)
{
    return static_cast<CFStringRef>(entryOf(interface, key));
}

} // namespace

extern "C" {

CFArrayRef SCNetworkInterfaceCopyAll()
{
    if (!succeeds("SCNetworkInterfaceCopyAll")) {
        return nullptr;
    }
    Object list{.kind = ObjectKind::Array};
    for (const auto& facts : SystemConfiguration::current().interfaces) {
        Object interface {
            .text = "network interface"
        };
        for (const auto& [key, value] : facts) {
            interface.entries.emplace_back(stringObject(key), stringObject(value));
        }
        list.items.push_back(make(std::move(interface)));
    }
    return makeAs<CFArrayRef>(std::move(list));
}

CFStringRef SCNetworkInterfaceGetBSDName(SCNetworkInterfaceRef interface) { return factOf(interface, "BSD Name"); }
CFStringRef SCNetworkInterfaceGetHardwareAddressString(SCNetworkInterfaceRef interface)
{
    return factOf(interface, "Address");
}
CFStringRef SCNetworkInterfaceGetInterfaceType(SCNetworkInterfaceRef interface) { return factOf(interface, "Type"); }
CFStringRef SCNetworkInterfaceGetLocalizedDisplayName(SCNetworkInterfaceRef interface)
{
    return factOf(interface, "Name");
}

Boolean SCNetworkInterfaceForceConfigurationRefresh(SCNetworkInterfaceRef interface)
{
    const std::string name = textIn(factOf(interface, "BSD Name"));
    if (!succeeds("SCNetworkInterfaceForceConfigurationRefresh")) {
        return 0;
    }
    SystemConfiguration::current().refreshed.push_back(name);
    return 1;
}

SCPreferencesRef SCPreferencesCreate(CFAllocatorRef, CFStringRef name, CFStringRef)
{
    if (!succeeds("SCPreferencesCreate")) {
        return nullptr;
    }
    return makeAs<SCPreferencesRef>({.text = "preferences: " + textIn(name)});
}

Boolean SCPreferencesSetValue(SCPreferencesRef preferences, CFStringRef key, CFPropertyListRef value)
{
    if (!succeeds("SCPreferencesSetValue")) {
        return 0;
    }
    objectAt(preferences).entries.emplace_back(CFRetain(key), CFRetain(value));
    return 1;
}

Boolean SCPreferencesCommitChanges(SCPreferencesRef preferences)
{
    if (!succeeds("SCPreferencesCommitChanges")) {
        return 0;
    }
    for (const auto& [key, value] : objectAt(preferences).entries) {
        SystemConfiguration::current().saved[textIn(key)] = textIn(value);
    }
    return 1;
}

Boolean SCPreferencesApplyChanges(SCPreferencesRef preferences)
{
    objectAt(preferences);
    if (!succeeds("SCPreferencesApplyChanges")) {
        return 0;
    }
    SystemConfiguration::current().inEffect = SystemConfiguration::current().saved;
    return 1;
}

/// The set keeps the session that it is of.
SCNetworkSetRef SCNetworkSetCopy(SCPreferencesRef preferences, CFStringRef identifier)
{
    if (!SystemConfiguration::current().sets.contains(textIn(identifier))) {
        SystemConfiguration::current().error = kSCStatusNoKey;
        return nullptr;
    }
    return makeAs<SCNetworkSetRef>({.text = "network set", .items = {CFRetain(preferences)}});
}
}
