// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/LinkMessages.h"

#include "platform/linux/kernel/NetlinkAttributes.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <utility>

namespace meridal::rtnl {

namespace {

template <typename Header>
const Header& fixedPart(const nlmsghdr& message)
{
    return *static_cast<const Header*>(mnl_nlmsg_get_payload(&message));
}

std::optional<HardwareAddress> hardwareAddressOf(const nlattr& attribute)
{
    HardwareAddress address{};
    const std::string_view bytes = bytesOf(attribute);
    if (bytes.size() != address.size()) {
        return std::nullopt;
    }
    std::memcpy(address.data(), bytes.data(), address.size());
    return address == HardwareAddress{} ? std::nullopt : std::optional(address);
}

std::optional<InterfaceAddress> addressOf(const nlattr& attribute, std::uint8_t family, std::uint8_t prefixLength)
{
    InterfaceAddress address;
    address.family = family == AF_INET ? InterfaceAddress::Family::IPv4 : InterfaceAddress::Family::IPv6;
    address.prefixLength = prefixLength;
    const std::string_view bytes = bytesOf(attribute);
    if ((family != AF_INET && family != AF_INET6) || bytes.size() != address.size()) {
        return std::nullopt;
    }
    std::memcpy(address.bytes.data(), bytes.data(), bytes.size());
    return address;
}

/// The counters that every kernel has, in front of those that were added later.
void takeCounters(InterfaceRecord& record, const nlattr& attribute)
{
    rtnl_link_stats64 counters{};
    constexpr std::size_t needed = offsetof(rtnl_link_stats64, multicast);
    const std::string_view bytes = bytesOf(attribute);
    if (bytes.size() < needed) {
        return;
    }
    std::memcpy(&counters, bytes.data(), std::min(bytes.size(), sizeof counters));
    record.hasCounters = true;
    record.bytesReceived = counters.rx_bytes;
    record.bytesSent = counters.tx_bytes;
    record.packetsReceived = counters.rx_packets;
    record.packetsSent = counters.tx_packets;
    record.errorsReceived = counters.rx_errors;
    record.errorsSent = counters.tx_errors;
    record.dropsReceived = counters.rx_dropped;
    record.dropsSent = counters.tx_dropped;
}

LinkState linkStateFrom(std::uint8_t operationalState, unsigned flags)
{
    switch (operationalState) {
    case IF_OPER_UP:
        return LinkState::Up;
    case IF_OPER_UNKNOWN: // drivers that do not say, such as loopback and tunnels
        return (flags & IFF_UP) == 0 ? LinkState::Down : (flags & IFF_LOWER_UP) ? LinkState::Up : LinkState::Unknown;
    default:
        return LinkState::Down;
    }
}

std::string driverKindIn(const nlattr& nest)
{
    std::string kind;
    forEachNested(nest, [&kind](const nlattr& attribute) {
        if (mnl_attr_get_type(&attribute) == IFLA_INFO_KIND) {
            kind = netlinkText(attribute);
        }
    });
    return kind;
}

void takeAttribute(Link& link, std::uint8_t& operationalState, const nlattr& attribute)
{
    InterfaceRecord& record = link.record;
    switch (mnl_attr_get_type(&attribute)) {
    case IFLA_IFNAME:
        record.name = netlinkText(attribute);
        break;
    case IFLA_IFALIAS:
        record.displayName = netlinkText(attribute);
        break;
    case IFLA_MTU:
        record.mtu = netlinkInteger<std::uint32_t>(attribute).value_or(0);
        break;
    case IFLA_ADDRESS:
        record.hardwareAddress = hardwareAddressOf(attribute);
        break;
    case IFLA_PERM_ADDRESS:
        record.permanentAddress = hardwareAddressOf(attribute);
        break;
    case IFLA_MASTER:
        link.master = netlinkInteger<std::int32_t>(attribute).value_or(0);
        break;
    case IFLA_STATS64:
        takeCounters(record, attribute);
        break;
    case IFLA_OPERSTATE:
        operationalState = netlinkInteger<std::uint8_t>(attribute).value_or(0);
        break;
    case IFLA_PARENT_DEV_NAME:
        link.hasParentDevice = true;
        break;
    case IFLA_LINKINFO:
        link.driverKind = driverKindIn(attribute);
        break;
    default:
        break;
    }
}

/// Drivers of interfaces whose frames travel inside those of others, or are theirs again.
constexpr std::array<std::pair<std::string_view, InterfaceKind>, 24> driverKinds = {
    {{"bridge", InterfaceKind::Bridge}, {"openvswitch", InterfaceKind::Bridge}, {"bond", InterfaceKind::Bond},
        {"team", InterfaceKind::Bond}, {"vlan", InterfaceKind::Vlan}, {"macvlan", InterfaceKind::Vlan},
        {"ipvlan", InterfaceKind::Vlan}, {"macvtap", InterfaceKind::Vlan}, {"wireguard", InterfaceKind::Tunnel},
        {"vxlan", InterfaceKind::Tunnel}, {"geneve", InterfaceKind::Tunnel}, {"gre", InterfaceKind::Tunnel},
        {"gretap", InterfaceKind::Tunnel}, {"ip6gre", InterfaceKind::Tunnel}, {"ip6gretap", InterfaceKind::Tunnel},
        {"ipip", InterfaceKind::Tunnel}, {"sit", InterfaceKind::Tunnel}, {"ip6tnl", InterfaceKind::Tunnel},
        {"vti", InterfaceKind::Tunnel}, {"vti6", InterfaceKind::Tunnel}, {"xfrm", InterfaceKind::Tunnel},
        {"ppp", InterfaceKind::Tunnel}, {"tun", InterfaceKind::Tunnel}, {"wwan", InterfaceKind::Cellular}}};

} // namespace

std::optional<Link> parseLink(const nlmsghdr& message)
{
    if (message.nlmsg_type != RTM_NEWLINK && message.nlmsg_type != RTM_DELLINK) {
        return std::nullopt;
    }
    Link link;
    std::uint8_t operationalState = IF_OPER_UNKNOWN;
    if (!forEachAttribute<ifinfomsg>(
            message, [&](const nlattr& attribute) { takeAttribute(link, operationalState, attribute); })) {
        return std::nullopt;
    }
    const auto& header = fixedPart<ifinfomsg>(message);
    // A bridge announces its ports under a family of its own; they are there all the same.
    if (header.ifi_family != AF_UNSPEC || header.ifi_index <= 0 || link.record.name.empty()) {
        return std::nullopt;
    }
    link.hardwareType = header.ifi_type;
    link.record.index = header.ifi_index;
    link.record.enabled = (header.ifi_flags & IFF_UP) != 0;
    link.record.link = linkStateFrom(operationalState, header.ifi_flags);
    return link;
}

std::int32_t countedInterface(const nlmsghdr& message)
{
    if (message.nlmsg_type != RTM_NEWSTATS || mnl_nlmsg_get_payload_len(&message) < sizeof(if_stats_msg)) {
        return 0;
    }
    return static_cast<std::int32_t>(fixedPart<if_stats_msg>(message).ifindex);
}

void takeCounters(InterfaceRecord& record, const nlmsghdr& message)
{
    forEachAttribute<if_stats_msg>(message, [&record](const nlattr& attribute) {
        if (mnl_attr_get_type(&attribute) == IFLA_STATS_LINK_64) {
            takeCounters(record, attribute);
        }
    });
}

std::optional<Address> parseAddress(const nlmsghdr& message)
{
    if (message.nlmsg_type != RTM_NEWADDR || mnl_nlmsg_get_payload_len(&message) < sizeof(ifaddrmsg)) {
        return std::nullopt;
    }
    const auto& fixed = fixedPart<ifaddrmsg>(message);
    std::optional<InterfaceAddress> own;
    std::optional<InterfaceAddress> other; // of the peer, on a link between two; the own one where there is no peer
    forEachAttribute<ifaddrmsg>(message, [&](const nlattr& attribute) {
        const auto type = mnl_attr_get_type(&attribute);
        if (type == IFA_LOCAL || type == IFA_ADDRESS) {
            (type == IFA_LOCAL ? own : other) = addressOf(attribute, fixed.ifa_family, fixed.ifa_prefixlen);
        }
    });
    const auto& address = own ? own : other;
    if (!address || address->prefixLength > address->size() * 8) {
        return std::nullopt;
    }
    return Address{.index = static_cast<std::int32_t>(fixed.ifa_index), .address = *address};
}

std::optional<Route> parseRoute(const nlmsghdr& message)
{
    if (message.nlmsg_type != RTM_NEWROUTE || mnl_nlmsg_get_payload_len(&message) < sizeof(rtmsg)) {
        return std::nullopt;
    }
    const auto& fixed = fixedPart<rtmsg>(message);
    Route route;
    forEachAttribute<rtmsg>(message, [&](const nlattr& attribute) {
        switch (mnl_attr_get_type(&attribute)) {
        case RTA_OIF:
            route.index = netlinkInteger<std::int32_t>(attribute).value_or(0);
            break;
        case RTA_GATEWAY:
            route.router = addressOf(attribute, fixed.rtm_family, 0);
            break;
        default:
            break;
        }
    });
    return fixed.rtm_type == RTN_UNICAST && route.index > 0 ? std::optional(route) : std::nullopt;
}

InterfaceKind kindOf(const Link& link, std::string_view deviceType, bool hasDevice)
{
    if (link.hardwareType == ARPHRD_LOOPBACK) {
        return InterfaceKind::Loopback;
    }
    if (deviceType == "wlan") {
        return InterfaceKind::WiFi;
    }
    if (deviceType == "wwan") {
        return InterfaceKind::Cellular;
    }
    if (deviceType == "bluetooth") {
        return InterfaceKind::Bluetooth;
    }
    const auto* driver = std::find_if(
        driverKinds.begin(), driverKinds.end(), [&](const auto& entry) { return entry.first == link.driverKind; });
    if (driver != driverKinds.end()) {
        // A tap device carries whole frames, those of a virtual machine as a rule.
        const bool isTap = link.driverKind == "tun" && link.hardwareType == ARPHRD_ETHER;
        return isTap ? InterfaceKind::Virtual : driver->second;
    }
    if (link.hardwareType == ARPHRD_PPP || link.hardwareType == ARPHRD_TUNNEL || link.hardwareType == ARPHRD_TUNNEL6
        || link.hardwareType == ARPHRD_SIT || link.hardwareType == ARPHRD_IPGRE) {
        return InterfaceKind::Tunnel;
    }
    if (link.hardwareType != ARPHRD_ETHER) {
        return InterfaceKind::Other;
    }
    return link.driverKind.empty() && (link.hasParentDevice || hasDevice) ? InterfaceKind::Ethernet
                                                                          : InterfaceKind::Virtual;
}

} // namespace meridal::rtnl
