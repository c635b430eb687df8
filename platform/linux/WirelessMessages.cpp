#include "platform/linux/WirelessMessages.h"

#include "platform/linux/NetlinkAttributes.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <array>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/genetlink.h>
#include <linux/nl80211.h>
#include <string_view>
#include <utility>

namespace meridal::nl80211 {

namespace {

/// Visits the attributes; false when the message is too short or carries another command.
template <typename Visit>
bool visitCommand(const nlmsghdr& message, std::uint8_t command, Visit visit)
{
    if (mnl_nlmsg_get_payload_len(&message) < sizeof(genlmsghdr)
        || static_cast<const genlmsghdr*>(mnl_nlmsg_get_payload(&message))->cmd != command) {
        return false;
    }
    return forEachAttribute<genlmsghdr>(message, visit);
}

/// One entry of CTRL_ATTR_MCAST_GROUPS.
void takeGroup(Family& family, const nlattr& nest)
{
    std::string name;
    std::optional<std::uint32_t> identifier;
    forEachNested(nest, [&](const nlattr& attribute) {
        if (mnl_attr_get_type(&attribute) == CTRL_ATTR_MCAST_GRP_NAME) {
            name = netlinkText(attribute);
        } else if (mnl_attr_get_type(&attribute) == CTRL_ATTR_MCAST_GRP_ID) {
            identifier = netlinkInteger<std::uint32_t>(attribute);
        }
    });
    if (identifier && !name.empty()) {
        family.groups.insert_or_assign(std::move(name), *identifier);
    }
}

} // namespace

std::optional<Family> parseFamily(const nlmsghdr& message)
{
    Family family;
    visitCommand(message, CTRL_CMD_NEWFAMILY, [&family](const nlattr& attribute) {
        if (mnl_attr_get_type(&attribute) == CTRL_ATTR_FAMILY_ID) {
            family.identifier = netlinkInteger<std::uint16_t>(attribute).value_or(0);
        } else if (mnl_attr_get_type(&attribute) == CTRL_ATTR_MCAST_GROUPS) {
            forEachNested(attribute, [&family](const nlattr& group) { takeGroup(family, group); });
        }
    });
    return family.identifier >= NLMSG_MIN_TYPE ? std::optional(std::move(family)) : std::nullopt;
}

std::optional<std::string> parseInterface(const nlmsghdr& message)
{
    std::string network;
    bool isClient = false;
    const bool isInterface = visitCommand(message, NL80211_CMD_NEW_INTERFACE, [&](const nlattr& attribute) {
        if (mnl_attr_get_type(&attribute) == NL80211_ATTR_SSID) {
            network = bytesOf(attribute);
        } else if (mnl_attr_get_type(&attribute) == NL80211_ATTR_IFTYPE) {
            const auto type = netlinkInteger<std::uint32_t>(attribute);
            isClient = type == NL80211_IFTYPE_STATION || type == NL80211_IFTYPE_P2P_CLIENT;
        }
    });
    if (!isInterface) {
        return std::nullopt;
    }
    return isClient ? std::move(network) : std::string();
}

std::optional<std::string> parseStation(const nlmsghdr& message)
{
    std::optional<std::string> station;
    visitCommand(message, NL80211_CMD_NEW_STATION, [&station](const nlattr& attribute) {
        std::array<std::uint8_t, 6> address{};
        if (mnl_attr_get_type(&attribute) == NL80211_ATTR_MAC && bytesOf(attribute).size() == address.size()) {
            std::memcpy(address.data(), mnl_attr_get_payload(&attribute), address.size());
            station = fmt::format("{:02x}", fmt::join(address, ":"));
        }
    });
    return station;
}

} // namespace meridal::nl80211
