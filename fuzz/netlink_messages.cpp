// SPDX-License-Identifier: Apache-2.0
// Messages as a netlink socket may hand them over: what the parsers find lies within them and makes sense.

#include "platform/linux/kernel/GenericNetlink.h"
#include "platform/linux/kernel/NetlinkSocket.h"
#include "platform/linux/network/LinkMessages.h"
#include "platform/linux/network/WirelessMessages.h"
#include "platform/linux/processes/TaskStatistics.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace meridal;
    std::vector<std::uint32_t> aligned((size + 3) / 4); // as the socket's own buffer is
    if (size > 0) {
        std::memcpy(aligned.data(), data, size);
    }
    nl80211::Association association;
    forEachNetlinkMessage(aligned.data(), size, [size, &association](const nlmsghdr& message) {
        if (const auto link = rtnl::parseLink(message)) {
            require(link->record.index > 0 && !link->record.name.empty() && link->record.name.size() < size);
            require(link->record.name.find('\0') == std::string::npos);
            rtnl::kindOf(*link, "", false);
        }
        if (rtnl::countedInterface(message) != 0) {
            InterfaceRecord record;
            rtnl::takeCounters(record, message);
            require(record.hasCounters || record.bytesReceived == 0);
        }
        if (const auto address = rtnl::parseAddress(message)) {
            require(address->address.prefixLength <= address->address.size() * 8);
        }
        if (const auto route = rtnl::parseRoute(message)) {
            require(route->index > 0);
        }
        if (const auto family = parseGenericFamily(message)) {
            require(family->identifier >= 16);
        }
        if (const auto sums = parseTaskStatistics(message)) {
            require(message.nlmsg_len > sizeof *sums);
        }
        association.take(message);
    });
    const WirelessIdentity identity = association.identity();
    require(!identity.bssid || (identity.bssid->size() == 17 && association.isClient()));
    require(!identity.ssid || identity.ssid->size() <= 32);
    return 0;
}
