// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/traffic/InterfaceTotals.h"

#include "base/Rate.h"
#include "platform/linux/network/LinkMessages.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <libmnl/libmnl.h>
#include <linux/if_arp.h>
#include <linux/rtnetlink.h>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

constexpr std::array<std::string_view, 17> carriedKinds = {"vlan", "macvlan", "macvtap", "ipvlan", "ipvtap", "bond",
    "team", "bridge", "openvswitch", "vrf", "ifb", "nlmon", "vsockmon", "dsa", "macsec", "hsr", "ipoib"};

bool isCarried(const rtnl::Link& link)
{
    return std::find(carriedKinds.begin(), carriedKinds.end(), link.driverKind) != carriedKinds.end();
}

bool isOfNoKind(const std::vector<rtnl::Link>& links, std::int32_t index)
{
    return std::any_of(links.begin(), links.end(),
        [index](const rtnl::Link& link) { return link.record.index == index && link.driverKind.empty(); });
}

/// Loopback looks like Ethernet, and counts without its headers.
bool isBare(const rtnl::Link& link)
{
    constexpr std::array<std::uint16_t, 9> types = {ARPHRD_LOOPBACK, ARPHRD_NONE, ARPHRD_RAWIP, ARPHRD_PPP,
        ARPHRD_TUNNEL, ARPHRD_TUNNEL6, ARPHRD_SIT, ARPHRD_IPGRE, ARPHRD_IP6GRE};
    return std::find(types.begin(), types.end(), link.hardwareType) != types.end();
}

} // namespace

std::vector<rtnl::Link> InterfaceTotals::counted(const std::vector<rtnl::Link>& links)
{
    std::vector<rtnl::Link> counted;
    std::copy_if(links.begin(), links.end(), std::back_inserter(counted), [&links](const rtnl::Link& link) {
        // A network card of a virtual machine that has a faster one as its member adds that one's counters to its own.
        return link.record.hasCounters && !isCarried(link) && !(link.master != 0 && isOfNoKind(links, link.master));
    });
    return counted;
}

InterfaceTotals::InterfaceTotals() : socket_(NETLINK_ROUTE) { read(); }

InterfaceTotals::Bytes InterfaceTotals::read()
{
    std::array<char, 64> memory = {};
    nlmsghdr* request = mnl_nlmsg_put_header(memory.data());
    request->nlmsg_type = RTM_GETLINK;
    request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg));
    std::vector<rtnl::Link> links;
    const NetlinkOutcome outcome = socket_.ask(*request, [&links](const nlmsghdr& message) {
        if (auto link = rtnl::parseLink(message)) {
            links.push_back(std::move(*link));
        }
    });
    Bytes moved;
    if (outcome == NetlinkOutcome::Failed) {
        return moved; // the next reading makes up for it
    }
    bare_.clear();
    for (const rtnl::Link& link : links) {
        if (isBare(link)) {
            bare_.push_back(link.record.index);
        }
    }
    std::map<std::int32_t, Bytes> now;
    for (const rtnl::Link& link : counted(links)) {
        now[link.record.index] = {link.record.bytesReceived, link.record.bytesSent};
    }
    for (const auto& [index, bytes] : now) {
        const auto before = before_.find(index);
        // A new one has a new number, and began at 0. One that comes back from another network has a life behind it.
        const Bytes start = before != before_.end() ? before->second : isPrimed_ && index > newest_ ? Bytes() : bytes;
        moved.received += growth(bytes.received, start.received);
        moved.sent += growth(bytes.sent, start.sent);
    }
    isPrimed_ = true;
    newest_ = now.empty() ? newest_ : std::max(newest_, now.rbegin()->first);
    if (outcome == NetlinkOutcome::Interrupted) { // some may be missing: they are not gone
        now.merge(before_);
    }
    before_ = std::move(now);
    return moved;
}

} // namespace meridal
