#include "platform/linux/LinuxWireless.h"

#include "platform/linux/WirelessMessages.h"

#include <array>
#include <libmnl/libmnl.h>
#include <linux/genetlink.h>
#include <linux/nl80211.h>
#include <net/if.h>
#include <optional>

namespace meridal {

namespace {

constexpr double searchInterval = 30; // s
constexpr double longestTrust = 30;   // s without an announcement

using Request = std::array<char, 256>;

nlmsghdr& makeRequest(Request& memory, std::uint16_t family, std::uint8_t command, std::uint16_t flags)
{
    nlmsghdr* request = mnl_nlmsg_put_header(memory.data());
    request->nlmsg_type = family;
    request->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
    auto* header = static_cast<genlmsghdr*>(mnl_nlmsg_put_extra_header(request, sizeof(genlmsghdr)));
    header->cmd = command;
    header->version = 1;
    return *request;
}

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
    auto identity = ask(index);
    if (identity) {
        known_.insert_or_assign(index, Known{.identity = *identity, .until = now + longestTrust});
    }
    return identity;
}

bool LinuxWireless::findFamily()
{
    const double now = runtime_.monotonicTime();
    if (family_ != 0 || now < nextSearch_) {
        return family_ != 0;
    }
    nextSearch_ = now + searchInterval;
    Request memory{};
    nlmsghdr& request = makeRequest(memory, GENL_ID_CTRL, CTRL_CMD_GETFAMILY, 0);
    mnl_attr_put_strz(&request, CTRL_ATTR_FAMILY_NAME, NL80211_GENL_NAME);
    questions_.ask(request, [this](const nlmsghdr& message) {
        if (const auto family = nl80211::parseFamily(message)) {
            family_ = family->identifier;
            if (const auto group = family->groups.find(NL80211_MULTICAST_GROUP_MLME); group != family->groups.end()) {
                news_.join(group->second);
            }
        }
    });
    return family_ != 0;
}

std::optional<WirelessIdentity> LinuxWireless::ask(std::uint32_t index)
{
    std::optional<WirelessIdentity> identity;
    Request memory{};
    nlmsghdr& interface = makeRequest(memory, family_, NL80211_CMD_GET_INTERFACE, 0);
    mnl_attr_put_u32(&interface, NL80211_ATTR_IFINDEX, index);
    questions_.ask(interface, [&identity](const nlmsghdr& message) {
        if (auto network = nl80211::parseInterface(message)) {
            identity.emplace();
            if (!network->empty()) {
                identity->ssid = std::move(*network);
            }
        }
    });
    if (identity && identity->ssid) {
        nlmsghdr& station = makeRequest(memory, family_, NL80211_CMD_GET_STATION, NLM_F_DUMP);
        mnl_attr_put_u32(&station, NL80211_ATTR_IFINDEX, index);
        questions_.ask(station, [&identity](const nlmsghdr& message) {
            if (!identity->bssid) {
                identity->bssid = nl80211::parseStation(message);
            }
        });
    }
    return identity;
}

} // namespace meridal
