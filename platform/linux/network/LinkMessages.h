// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/NetworkInterfaces.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct nlmsghdr;

namespace meridal::rtnl {

/// What an RTM_NEWLINK or RTM_DELLINK message tells of an interface.
struct Link {
    InterfaceRecord record;         ///< without kind and addresses
    std::string driverKind;         ///< IFLA_INFO_KIND: "bridge", "veth"; empty for hardware
    std::uint16_t hardwareType = 0; ///< ARPHRD_*
    std::int32_t master = 0;        ///< index of the interface that has it as a member (IFLA_MASTER); 0 = none
    bool hasParentDevice = false;   ///< a device of some bus stands behind it; told by kernels from 5.14 on
};

struct Address {
    std::int32_t index = 0; ///< of the interface
    InterfaceAddress address;
};

struct Route {
    std::int32_t index = 0; ///< of the interface that it leaves by
    std::optional<InterfaceAddress> router;
};

// Each is absent when the message is of another type, too short, or not about the machine's own interfaces.
std::optional<Link> parseLink(const nlmsghdr& message);
std::optional<Address> parseAddress(const nlmsghdr& message);
std::optional<Route> parseRoute(const nlmsghdr& message);

/// The index of the interface whose counters an RTM_NEWSTATS message tells; 0 for any other message.
std::int32_t countedInterface(const nlmsghdr& message);
/// Puts those counters into its record.
void takeCounters(InterfaceRecord& record, const nlmsghdr& message);

/// What an interface is. `deviceType` is DEVTYPE of its uevent file ("wlan", "wwan"); `hasDevice` whether sysfs knows a
/// device behind it.
InterfaceKind kindOf(const Link& link, std::string_view deviceType, bool hasDevice);

} // namespace meridal::rtnl
