// SPDX-License-Identifier: Apache-2.0
#include "collectors/network/WifiTraffic.h"

namespace meridal {

void WifiTraffic::add(
    const std::optional<std::string>& name, const std::optional<std::string>& bssid, const BandwidthAmount& amount)
{
    if (!name && !bssid) {
        return;
    }
    const bool isHidden = !name || name->empty();
    const Key key = isHidden ? Key{std::nullopt, bssid} : Key{name, std::nullopt};
    const bool hasRoom = networks_.size() < mostNetworks || networks_.contains(key);
    BandwidthAmount& sum = networks_[hasRoom ? key : Key{}];
    sum.upload += amount.upload;
    sum.download += amount.download;
}

std::vector<WifiTraffic::Network> WifiTraffic::networks() const
{
    std::vector<Network> all;
    all.reserve(networks_.size());
    for (const auto& [key, amount] : networks_) {
        Network& network = all.emplace_back();
        network.identity.ssid = key.first;
        network.identity.bssid = key.second;
        network.amount = amount;
    }
    return all;
}

} // namespace meridal
