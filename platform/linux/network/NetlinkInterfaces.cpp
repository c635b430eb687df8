// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/NetlinkInterfaces.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <optional>
#include <sys/socket.h>

namespace meridal {

namespace {

constexpr const char* interfacesLimitation = "network-interfaces";
constexpr int mostAttempts = 4;
constexpr std::size_t mostGone = 4096; // between two readings

/// Somewhere in the outside world that no machine has a route of its own to: the address of a root name server. Nothing is
/// sent there. Asking for one route instead of looking for the default one among all is right with policy rules and
/// tunnels, and costs the same on a router that knows a million.
constexpr InterfaceAddress outside4 = {.family = InterfaceAddress::Family::IPv4, .bytes = {198, 41, 0, 4}};
constexpr InterfaceAddress outside6 = {.family = InterfaceAddress::Family::IPv6,
    .bytes = {0x20, 0x01, 0x05, 0x03, 0xba, 0x3e, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0x30}};

using Request = std::array<char, 256>;

template <typename Header>
nlmsghdr& makeRequest(Request& memory, std::uint16_t type, std::uint16_t flags, const Header& header)
{
    nlmsghdr* request = mnl_nlmsg_put_header(memory.data());
    request->nlmsg_type = type;
    request->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
    *static_cast<Header*>(mnl_nlmsg_put_extra_header(request, sizeof header)) = header;
    return *request;
}

bool isSameIndex(const InterfaceRecord& a, const InterfaceRecord& b) { return a.index == b.index; }
bool isBefore(const InterfaceRecord& a, const InterfaceRecord& b) { return a.index < b.index; }

} // namespace

NetlinkInterfaces::NetlinkInterfaces(const std::filesystem::path& root, std::shared_ptr<Limitations> limitations)
    : folder_(root), limitations_(std::move(limitations)), questions_(NETLINK_ROUTE), news_(NETLINK_ROUTE)
{
    hearsNews_ = news_.join(RTNLGRP_LINK) && news_.join(RTNLGRP_IPV4_IFADDR) && news_.join(RTNLGRP_IPV6_IFADDR);
    if (!questions_.isOpen()) {
        limitations_->set(interfacesLimitation, std::string("no netlink socket: ") + std::strerror(questions_.error()));
    }
}

const NetworkReading* NetlinkInterfaces::read()
{
    takeNews();
    const bool isLinkKnown = hearsNews_ && !linksStale_ && tellsCounters_ && readCounters();
    if (!isLinkKnown && !readLinks()) {
        limitations_->set(
            interfacesLimitation, std::string("the kernel does not list them: ") + std::strerror(questions_.error()));
        return nullptr;
    }
    limitations_->clear(interfacesLimitation);
    const bool isAddressKnown = hearsNews_ && !addressesStale_;
    if (!isAddressKnown) {
        readAddresses();
    }
    if (!isLinkKnown || !isAddressKnown) {
        giveAddresses();
    }
    reading_.gone = std::exchange(gone_, {});
    reading_.primary = readPrimary();
    hasReading_ = true;
    return &reading_;
}

/// What was announced since the last reading: interfaces that went, with their last counters, and changed addresses.
void NetlinkInterfaces::takeNews()
{
    const NetlinkNews news = news_.receiveNews([this](const nlmsghdr& message) {
        switch (message.nlmsg_type) {
        case RTM_NEWADDR:
        case RTM_DELADDR:
            addressesStale_ = true;
            break;
        case RTM_NEWLINK:
            linksStale_ = true;
            break;
        case RTM_DELLINK:
            linksStale_ = true;
            if (auto link = rtnl::parseLink(message); link && gone_.size() < mostGone) {
                gone_.push_back(std::move(link->record));
            }
            break;
        default:
            break;
        }
    });
    linksStale_ = linksStale_ || news == NetlinkNews::Lost;
    addressesStale_ = addressesStale_ || news == NetlinkNews::Lost;
}

/// Into the interfaces of the reading before, for about half of what a dump of the links costs. False when one of them
/// is no longer there.
bool NetlinkInterfaces::readCounters()
{
    auto& known = reading_.interfaces;
    std::size_t matched = 0;
    Request memory{};
    if_stats_msg header{};
    header.filter_mask = IFLA_STATS_FILTER_BIT(IFLA_STATS_LINK_64);
    nlmsghdr& request = makeRequest(memory, RTM_GETSTATS, NLM_F_DUMP, header);
    const NetlinkOutcome outcome = questions_.ask(request, [&](const nlmsghdr& message) {
        const std::int32_t index = rtnl::countedInterface(message);
        const auto place = std::lower_bound(known.begin(), known.end(), index,
            [](const InterfaceRecord& record, std::int32_t sought) { return record.index < sought; });
        if (place != known.end() && place->index == index) {
            ++matched;
            rtnl::takeCounters(*place, message);
        }
    });
    tellsCounters_ = outcome != NetlinkOutcome::Failed || questions_.error() != EOPNOTSUPP;
    return outcome == NetlinkOutcome::Complete && matched == known.size();
}

/// A table that keeps changing while it is read is taken as it came in the end: each row is right by itself, and a missed
/// interface is back in the next reading.
bool NetlinkInterfaces::readLinks()
{
    std::vector<InterfaceRecord> links;
    NetlinkOutcome outcome = NetlinkOutcome::Interrupted;
    decltype(kinds_) kinds;
    for (int attempt = 0; attempt < mostAttempts && outcome == NetlinkOutcome::Interrupted; ++attempt) {
        links.clear();
        Request memory{};
        nlmsghdr& request = makeRequest(memory, RTM_GETLINK, NLM_F_DUMP, ifinfomsg{});
        outcome = questions_.ask(request, [&](const nlmsghdr& message) {
            if (auto link = rtnl::parseLink(message)) {
                link->record.kind = kindOf(*link);
                kinds.emplace(std::pair(link->record.index, link->record.name), link->record.kind);
                links.push_back(std::move(link->record));
            }
        });
    }
    kinds_ = std::move(kinds); // those that went are forgotten
    std::stable_sort(links.begin(), links.end(), isBefore);
    links.erase(std::unique(links.begin(), links.end(), isSameIndex), links.end());
    if (outcome == NetlinkOutcome::Failed || links.empty()) {
        return false;
    }
    linksStale_ = outcome != NetlinkOutcome::Complete; // read again next time
    reading_.interfaces = std::move(links);
    return true;
}

/// From sysfs, which costs a file: once for each name of each interface.
InterfaceKind NetlinkInterfaces::kindOf(const rtnl::Link& link)
{
    if (const auto known = kinds_.find({link.record.index, link.record.name}); known != kinds_.end()) {
        return known->second;
    }
    const std::string folder = "sys/class/net/" + link.record.name;
    const std::string uevent = folder_.read(folder + "/uevent").value_or("");
    return rtnl::kindOf(link, valueOfKey(uevent, "DEVTYPE", '=').value_or(""), folder_.exists(folder + "/device"));
}

void NetlinkInterfaces::readAddresses()
{
    NetlinkOutcome outcome = NetlinkOutcome::Interrupted;
    AddressesByIndex addresses;
    for (int attempt = 0; attempt < mostAttempts && outcome == NetlinkOutcome::Interrupted; ++attempt) {
        addresses.clear();
        Request memory{};
        nlmsghdr& request = makeRequest(memory, RTM_GETADDR, NLM_F_DUMP, ifaddrmsg{});
        outcome = questions_.ask(request, [&](const nlmsghdr& message) {
            if (const auto address = rtnl::parseAddress(message)) {
                addresses.emplace(address->index, address->address);
            }
        });
    }
    if (outcome != NetlinkOutcome::Failed) {
        addresses_ = std::move(addresses);
        addressesStale_ = outcome != NetlinkOutcome::Complete; // read again next time
    }
}

void NetlinkInterfaces::giveAddresses()
{
    for (InterfaceRecord& link : reading_.interfaces) {
        link.addresses.clear();
        const auto [first, last] = addresses_.equal_range(link.index);
        std::for_each(first, last, [&link](const auto& entry) { link.addresses.push_back(entry.second); });
    }
}

std::optional<rtnl::Route> NetlinkInterfaces::routeTo(const InterfaceAddress& destination)
{
    rtmsg header{};
    header.rtm_family = destination.family == InterfaceAddress::Family::IPv4 ? AF_INET : AF_INET6;
    header.rtm_dst_len = static_cast<unsigned char>(destination.size() * 8);
    Request memory{};
    nlmsghdr& request = makeRequest(memory, RTM_GETROUTE, 0, header);
    mnl_attr_put(&request, RTA_DST, destination.size(), destination.bytes.data());
    std::optional<rtnl::Route> route;
    questions_.ask(request, [&route](const nlmsghdr& message) { route = rtnl::parseRoute(message); });
    return route;
}

std::optional<PrimaryService> NetlinkInterfaces::readPrimary()
{
    for (const InterfaceAddress& destination : {outside4, outside6}) {
        const auto route = routeTo(destination);
        const auto interface = std::find_if(reading_.interfaces.begin(), reading_.interfaces.end(),
            [&](const InterfaceRecord& record) { return route && record.index == route->index; });
        if (interface != reading_.interfaces.end() && interface->kind != InterfaceKind::Loopback) {
            return PrimaryService{
                .interfaceIndex = interface->index, .interfaceName = interface->name, .router = route->router};
        }
    }
    return std::nullopt;
}

} // namespace meridal
