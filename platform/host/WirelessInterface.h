// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"

#include <optional>
#include <string>

namespace meridal {

/// The network that a Wi-Fi interface has joined. What the system does not tell, or withholds, is absent.
struct WirelessIdentity {
    std::optional<std::string> bssid; ///< hardware address of the base station, "aa:bb:cc:dd:ee:ff"
    std::optional<std::string> ssid;  ///< its name, raw bytes
    bool operator==(const WirelessIdentity&) const = default;
};

/// Wi-Fi of this host. macOS: CoreWLAN. Linux: nl80211 and rfkill.
class WirelessInterface {
public:
    virtual ~WirelessInterface() = default;
    /// Absent when there is no Wi-Fi interface of that name. macOS knows one Wi-Fi interface, whatever the name. Main
    /// queue only.
    virtual std::optional<WirelessIdentity> identity(const std::string& interfaceName) = 0;
    /// Switches the radio on when it is off, and off when it is on. On the queue for actions.
    virtual Result<void> togglePower() = 0;
};

} // namespace meridal
