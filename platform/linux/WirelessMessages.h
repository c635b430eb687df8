#pragma once

#include "platform/host/WirelessInterface.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>

struct nlmsghdr;

namespace meridal::nl80211 {

/// A family of generic netlink, as the kernel's controller describes it. Numbers are given out at boot.
struct Family {
    std::uint16_t identifier = 0;
    std::map<std::string, std::uint32_t> groups; ///< of announcements, by name
};

// Each is absent when the message is another one, or lacks what it is about.
std::optional<Family> parseFamily(const nlmsghdr& message);
/// The network name from an answer to NL80211_CMD_GET_INTERFACE, raw bytes; empty while none is joined, and for an
/// interface that is not a client: the stations of an access point are its guests.
std::optional<std::string> parseInterface(const nlmsghdr& message);
/// The station from an answer to NL80211_CMD_GET_STATION, "aa:bb:cc:dd:ee:ff". For a client of a network there is one:
/// the base station.
std::optional<std::string> parseStation(const nlmsghdr& message);

} // namespace meridal::nl80211
