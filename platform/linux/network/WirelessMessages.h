// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/WirelessInterface.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>

struct nlattr;
struct nlmsghdr;

namespace meridal::nl80211 {

/// What the answers about one interface say of the network that it has joined. It takes them in any order and passes
/// over other messages. The kernel knows the base station and its name best, in the list of what was found by scanning
/// (NL80211_CMD_GET_SCAN): it marks the one that is in use, whoever joined it. The interface itself
/// (NL80211_CMD_GET_INTERFACE) tells a name where the driver joins networks by itself (NL80211_CMD_CONNECT), not where
/// wpa_supplicant goes through the steps of it, as for all drivers on mac80211.
class Association {
public:
    void take(const nlmsghdr& message);

    /// The interface is one of Wi-Fi.
    bool isWireless() const { return isWireless_; }
    /// It is of a kind that joins networks; an access point's stations are its guests.
    bool isClient() const { return isClient_; }
    /// The base station in use was in the list.
    bool isListed() const { return listed_.has_value(); }
    /// Empty while none is joined. The name is empty when there is a base station that hides it.
    WirelessIdentity identity() const;

private:
    struct Listed {
        std::string bssid;
        std::string ssid;
        int link = -1; ///< number of a link of several to one base station (Wi-Fi 7); -1 for the only one
    };

    void takeInterface(const nlmsghdr& message);
    void takeListed(const nlattr& nest);

    bool isWireless_ = false;
    bool isClient_ = false;
    std::string ssid_;                   ///< that the interface tells
    std::optional<std::string> station_; ///< "aa:bb:cc:dd:ee:ff"
    std::optional<Listed> listed_;       ///< of several links, the one with the lowest number
};

} // namespace meridal::nl80211
