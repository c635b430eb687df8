// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"

#include <string>

namespace meridal {

/// Changes to how this host is connected, with the rights of the daemon. Each call takes its time, up to half a minute:
/// on the queue for actions only. Names come from clients and have passed the checks of platform/NetworkNames.h.
/// macOS: SystemConfiguration. Linux: NetworkManager or systemd-networkd over the bus, whichever has the link, else the
/// DHCP client that serves it.
class NetworkConfiguration {
public:
    virtual ~NetworkConfiguration() = default;
    /// Has the interface's DHCP lease renewed. Success means that whoever holds the lease was told, not that it has come.
    virtual Result<void> refreshLease(const std::string& interfaceName) = 0;
    /// Makes another set of network settings the current one. macOS: a location. Linux: a connection profile of
    /// NetworkManager, or an instance of the unit meridal-network-set@.service.
    virtual Result<void> setNetworkSet(const std::string& identifier) = 0;
};

} // namespace meridal
