// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/network/NetworkStatCollectorBandwidthItem.h"
#include "platform/host/WirelessInterface.h"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

/// What Wi-Fi networks have carried since the daemon's start, on whatever interface: only grows. A network is its name, or a base
/// station by itself where it hides that. Some 0.2 KB each; beyond `mostNetworks` those that come are one, without a name.
class WifiTraffic {
public:
    struct Network {
        WirelessIdentity identity; ///< either a name or a base station
        BandwidthAmount amount;
    };

    void add(
        const std::optional<std::string>& name, const std::optional<std::string>& bssid, const BandwidthAmount& amount);
    std::vector<Network> networks() const;

    static constexpr std::size_t mostNetworks = 256;

private:
    using Key = std::pair<std::optional<std::string>, std::optional<std::string>>;
    std::map<Key, BandwidthAmount> networks_;
};

} // namespace meridal
