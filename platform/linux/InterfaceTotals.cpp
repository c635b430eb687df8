#include "platform/linux/InterfaceTotals.h"

#include "platform/linux/LinkMessages.h"

#include <algorithm>
#include <array>
#include <libmnl/libmnl.h>
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

/// A counter that went back has started over.
std::uint64_t growth(std::uint64_t now, std::uint64_t before) { return now >= before ? now - before : now; }

} // namespace

InterfaceTotals::InterfaceTotals() : socket_(NETLINK_ROUTE) { read(); }

InterfaceTotals::Bytes InterfaceTotals::read()
{
    std::array<char, 64> memory = {};
    nlmsghdr* request = mnl_nlmsg_put_header(memory.data());
    request->nlmsg_type = RTM_GETLINK;
    request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg));
    std::map<std::int32_t, Bytes> now;
    const NetlinkOutcome outcome = socket_.ask(*request, [&now](const nlmsghdr& message) {
        const auto link = rtnl::parseLink(message);
        if (link && link->record.hasCounters && !isCarried(*link)) {
            now[link->record.index] = {link->record.bytesReceived, link->record.bytesSent};
        }
    });
    Bytes moved;
    if (outcome == NetlinkOutcome::Failed) {
        return moved; // the next reading makes up for it
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
