// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/LinuxWireless.h"

#include "platform/linux/kernel/GenericNetlink.h"

#include <array>
#include <linux/nl80211.h>
#include <net/if.h>
#include <optional>

namespace meridal {

namespace {

constexpr double searchInterval = 30; // s
constexpr double longestTrust = 30;   // s without an announcement

using Request = std::array<char, 256>;

} // namespace

LinuxWireless::LinuxWireless(Runtime& runtime, const std::filesystem::path& root)
    : runtime_(runtime), questions_(NETLINK_GENERIC), news_(NETLINK_GENERIC), rfkill_(root)
{
}

std::optional<WirelessIdentity> LinuxWireless::identity(const std::string& interfaceName)
{
    const std::uint32_t index = ::if_nametoindex(interfaceName.c_str());
    if (index == 0 || !findFamily()) {
        return std::nullopt;
    }
    if (news_.receiveNews([](const nlmsghdr&) {}) != NetlinkNews::Nothing) {
        known_.clear();
    }
    const double now = runtime_.monotonicTime();
    if (const auto known = known_.find(index); known != known_.end() && now < known->second.until) {
        return known->second.identity;
    }
    bool complete = true; // a list that was read while a scan went on may lack the network
    const nl80211::Association association = ask(index, complete);
    if (!association.isWireless()) {
        return std::nullopt;
    }
    const Known known{.identity = association.identity(), .until = complete ? now + longestTrust : now};
    known_.insert_or_assign(index, known);
    return known.identity;
}

bool LinuxWireless::findFamily()
{
    const double now = runtime_.monotonicTime();
    if (family_ != 0 || now < nextSearch_) {
        return family_ != 0;
    }
    nextSearch_ = now + searchInterval;
    Request memory{};
    questions_.ask(beginFamilyRequest(memory.data(), NL80211_GENL_NAME), [this](const nlmsghdr& message) {
        if (const auto family = parseGenericFamily(message)) {
            family_ = family->identifier;
            if (const auto group = family->groups.find(NL80211_MULTICAST_GROUP_MLME); group != family->groups.end()) {
                news_.join(group->second);
            }
        }
    });
    return family_ != 0;
}

nl80211::Association LinuxWireless::ask(std::uint32_t index, bool& complete)
{
    nl80211::Association association;
    const auto ask = [&](std::uint8_t command, std::uint16_t flags) {
        Request memory{};
        nlmsghdr& request = beginGenericRequest(memory.data(), family_, command, flags);
        mnl_attr_put_u32(&request, NL80211_ATTR_IFINDEX, index);
        return questions_.ask(request, [&association](const nlmsghdr& message) { association.take(message); });
    };
    ask(NL80211_CMD_GET_INTERFACE, 0);
    if (!association.isClient()) {
        return association;
    }
    complete = ask(NL80211_CMD_GET_SCAN, NLM_F_DUMP) == NetlinkOutcome::Complete || association.isListed();
    if (!association.isListed()) {
        ask(NL80211_CMD_GET_STATION, NLM_F_DUMP);
    }
    return association;
}

} // namespace meridal
