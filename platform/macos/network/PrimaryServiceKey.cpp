// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/network/PrimaryServiceKey.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <string>

namespace meridal {

namespace {

std::optional<std::string> stringIn(CFDictionaryRef dictionary, CFStringRef key)
{
    const auto value = static_cast<CFTypeRef>(CFDictionaryGetValue(dictionary, key));
    return value && CFGetTypeID(value) == CFStringGetTypeID() ? textOf(value) : std::nullopt;
}

/// Without the interface that stands behind a link-local one: "fe80::1%en0".
std::optional<InterfaceAddress> parseRouter(const std::optional<std::string>& text, InterfaceAddress::Family family)
{
    InterfaceAddress address{.family = family};
    const int number = family == InterfaceAddress::Family::IPv4 ? AF_INET : AF_INET6;
    const bool isOne = text && ::inet_pton(number, text->substr(0, text->find('%')).c_str(), address.bytes.data()) == 1;
    return isOne ? std::optional(address) : std::nullopt;
}

std::optional<PrimaryService> serviceOf(
    CFDictionaryRef settings, InterfaceAddress::Family family, const std::vector<InterfaceRecord>& interfaces)
{
    const auto name = stringIn(settings, kSCDynamicStorePropNetPrimaryInterface);
    const auto interface = std::find_if(
        interfaces.begin(), interfaces.end(), [&name](const InterfaceRecord& record) { return record.name == name; });
    if (interface == interfaces.end()) {
        return std::nullopt;
    }
    const bool isIPv4 = family == InterfaceAddress::Family::IPv4;
    return PrimaryService{.interfaceIndex = interface->index,
        .interfaceName = interface->name,
        .router = parseRouter(stringIn(settings, isIPv4 ? kSCPropNetIPv4Router : kSCPropNetIPv6Router), family)};
}

} // namespace

PrimaryServiceKey::PrimaryServiceKey()
    : store_(SCDynamicStoreCreate(kCFAllocatorDefault, CFSTR("MeridalDaemon-network"), nullptr, nullptr))
{
}

std::optional<PrimaryService> PrimaryServiceKey::read(const std::vector<InterfaceRecord>& interfaces) const
{
    if (!store_) {
        return std::nullopt;
    }
    using enum InterfaceAddress::Family;
    for (const auto family : {IPv4, IPv6}) {
        const CFRef<CFPropertyListRef> value(SCDynamicStoreCopyValue(
            store_.get(), family == IPv4 ? CFSTR("State:/Network/Global/IPv4") : CFSTR("State:/Network/Global/IPv6")));
        const bool isDictionary = value && CFGetTypeID(value.get()) == CFDictionaryGetTypeID();
        const auto settings = isDictionary ? static_cast<CFDictionaryRef>(value.get()) : nullptr;
        if (auto service = settings ? serviceOf(settings, family, interfaces) : std::nullopt) {
            return service;
        }
    }
    return std::nullopt;
}

} // namespace meridal
