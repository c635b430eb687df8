// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/WirelessMessages.h"

#include "platform/linux/kernel/GenericNetlink.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <array>
#include <cstring>
#include <linux/nl80211.h>
#include <string_view>
#include <utility>

namespace meridal::nl80211 {

namespace {

constexpr std::size_t longestName = 32; // bytes

std::optional<std::string> addressIn(const nlattr& attribute)
{
    std::array<std::uint8_t, 6> address{};
    if (bytesOf(attribute).size() != address.size()) {
        return std::nullopt;
    }
    std::memcpy(address.data(), mnl_attr_get_payload(&attribute), address.size());
    return fmt::format("{:02x}", fmt::join(address, ":"));
}

/// Empty for what is none: too long, or the zeros by which some base stations hide theirs.
std::string networkName(std::string_view bytes)
{
    const bool isName = bytes.size() <= longestName && bytes.find_first_not_of('\0') != std::string_view::npos;
    return std::string(isName ? bytes : std::string_view());
}

/// The name among the elements of a beacon or of an answer to a probe: each has its number, its length and its contents.
std::string nameInElements(std::string_view elements)
{
    while (elements.size() >= 2) {
        const bool isName = elements[0] == 0;
        const std::size_t length = static_cast<unsigned char>(elements[1]);
        elements.remove_prefix(2);
        if (length > elements.size()) {
            break;
        }
        if (isName) {
            return networkName(elements.substr(0, length));
        }
        elements.remove_prefix(length);
    }
    return {};
}

} // namespace

// Association

void Association::take(const nlmsghdr& message)
{
    takeInterface(message);
    forEachGenericAttribute(message, NL80211_CMD_NEW_SCAN_RESULTS, [this](const nlattr& attribute) {
        if (mnl_attr_get_type(&attribute) == NL80211_ATTR_BSS) {
            takeListed(attribute);
        }
    });
    forEachGenericAttribute(message, NL80211_CMD_NEW_STATION, [this](const nlattr& attribute) {
        if (mnl_attr_get_type(&attribute) == NL80211_ATTR_MAC && !station_) {
            station_ = addressIn(attribute);
        }
    });
}

void Association::takeInterface(const nlmsghdr& message)
{
    const bool isInterface =
        forEachGenericAttribute(message, NL80211_CMD_NEW_INTERFACE, [this](const nlattr& attribute) {
            if (mnl_attr_get_type(&attribute) == NL80211_ATTR_SSID) {
                ssid_ = networkName(bytesOf(attribute));
            } else if (mnl_attr_get_type(&attribute) == NL80211_ATTR_IFTYPE) {
                const auto type = netlinkInteger<std::uint32_t>(attribute);
                isClient_ =
                    type == NL80211_IFTYPE_STATION || type == NL80211_IFTYPE_P2P_CLIENT || type == NL80211_IFTYPE_ADHOC;
            }
        });
    isWireless_ = isWireless_ || isInterface;
}

void Association::takeListed(const nlattr& nest)
{
    std::optional<std::string> bssid;
    std::string_view response;
    std::string_view beacon;
    Listed listed;
    bool inUse = false;
    forEachNested(nest, [&](const nlattr& attribute) {
        switch (mnl_attr_get_type(&attribute)) {
        case NL80211_BSS_BSSID:
            bssid = addressIn(attribute);
            break;
        case NL80211_BSS_INFORMATION_ELEMENTS:
            response = bytesOf(attribute);
            break;
        case NL80211_BSS_BEACON_IES:
            beacon = bytesOf(attribute);
            break;
        case NL80211_BSS_STATUS: {
            const auto status = netlinkInteger<std::uint32_t>(attribute);
            inUse = status == NL80211_BSS_STATUS_ASSOCIATED || status == NL80211_BSS_STATUS_IBSS_JOINED;
            break;
        }
        case NL80211_BSS_MLO_LINK_ID:
            listed.link = netlinkInteger<std::uint8_t>(attribute).value_or(0);
            break;
        default:
            break;
        }
    });
    if (!inUse || !bssid || (listed_ && listed_->link <= listed.link)) {
        return;
    }
    listed.bssid = std::move(*bssid);
    listed.ssid = nameInElements(response);
    if (listed.ssid.empty()) {
        listed.ssid = nameInElements(beacon);
    }
    listed_ = std::move(listed);
}

WirelessIdentity Association::identity() const
{
    if (!isClient_) {
        return {};
    }
    if (listed_) {
        return {.bssid = listed_->bssid, .ssid = listed_->ssid.empty() ? ssid_ : listed_->ssid};
    }
    if (ssid_.empty()) { // a station alone may be one that is only being tried
        return {};
    }
    return {.bssid = station_, .ssid = ssid_};
}

} // namespace meridal::nl80211
