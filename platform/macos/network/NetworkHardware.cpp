// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/network/NetworkHardware.h"

#include "platform/PeripheralNames.h"
#include "platform/macos/kernel/CFRef.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

InterfaceKind kindOfType(CFStringRef type)
{
    const std::array<std::pair<CFStringRef, InterfaceKind>, 8> kinds = {{{kSCNetworkInterfaceTypeEthernet,
                                                                             InterfaceKind::Ethernet},
        {kSCNetworkInterfaceTypeIEEE80211, InterfaceKind::WiFi}, {kSCNetworkInterfaceTypeWWAN, InterfaceKind::Cellular},
        {kSCNetworkInterfaceTypeModem, InterfaceKind::Cellular},
        {kSCNetworkInterfaceTypeBluetooth, InterfaceKind::Bluetooth},
        {kSCNetworkInterfaceTypeBond, InterfaceKind::Bond}, {kSCNetworkInterfaceTypeVLAN, InterfaceKind::Vlan},
        {kSCNetworkInterfaceTypePPP, InterfaceKind::Tunnel}}};
    for (const auto& [name, kind] : kinds) {
        if (type && CFEqual(type, name)) {
            return kind;
        }
    }
    return InterfaceKind::Other;
}

/// What the name tells of interfaces that are no hardware.
InterfaceKind kindOfStem(std::string_view name)
{
    constexpr std::array<std::pair<std::string_view, InterfaceKind>, 11> kinds = {
        {{"lo", InterfaceKind::Loopback}, {"bridge", InterfaceKind::Bridge}, {"bond", InterfaceKind::Bond},
            {"vlan", InterfaceKind::Vlan}, {"utun", InterfaceKind::Tunnel}, {"ipsec", InterfaceKind::Tunnel},
            {"gif", InterfaceKind::Tunnel}, {"stf", InterfaceKind::Tunnel}, {"ppp", InterfaceKind::Tunnel},
            {"feth", InterfaceKind::Virtual}, {"vmenet", InterfaceKind::Virtual}}};
    const std::string_view stem = name.substr(0, name.find_first_of("0123456789"));
    const auto* found =
        std::find_if(kinds.begin(), kinds.end(), [&](const auto& entry) { return entry.first == stem; });
    return found == kinds.end() ? InterfaceKind::Other : found->second;
}

/// "aa:bb:cc:dd:ee:ff"; absent for anything else, among them the eight bytes of FireWire.
std::optional<HardwareAddress> parseAddress(std::string_view text)
{
    const auto valid = hardwareAddress(text);
    if (!valid) {
        return std::nullopt;
    }
    HardwareAddress address{};
    for (std::size_t i = 0; i < address.size(); ++i) {
        const char* octet = valid->data() + 3 * i;
        std::from_chars(octet, octet + 2, address[i], 16);
    }
    return address;
}

} // namespace

void NetworkHardware::read()
{
    ports_.clear();
    const CFRef<CFArrayRef> list(SCNetworkInterfaceCopyAll());
    for (CFIndex i = 0; list && i < CFArrayGetCount(list.get()); ++i) {
        // Owned by the list, as is what is told of it.
        const auto interface = static_cast<SCNetworkInterfaceRef>(CFArrayGetValueAtIndex(list.get(), i));
        const auto name = textOf(SCNetworkInterfaceGetBSDName(interface));
        if (name) {
            ports_[*name] = {.kind = kindOfType(SCNetworkInterfaceGetInterfaceType(interface)),
                .displayName = textOf(SCNetworkInterfaceGetLocalizedDisplayName(interface)).value_or(""),
                .permanentAddress =
                    parseAddress(textOf(SCNetworkInterfaceGetHardwareAddressString(interface)).value_or(""))};
        }
    }
}

void NetworkHardware::describe(InterfaceRecord& record) const
{
    if (record.kind == InterfaceKind::Other) {
        record.kind = kindOfStem(record.name);
    }
    if (const auto known = ports_.find(record.name); known != ports_.end()) {
        record.kind = known->second.kind == InterfaceKind::Other ? record.kind : known->second.kind;
        record.displayName = known->second.displayName;
        record.permanentAddress = known->second.permanentAddress;
    }
}

} // namespace meridal
