// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/network/NetworkStatCollector.h"

namespace meridal {

class CoreWLanStatCollector;

/// The network collector of both hosts: reads the interfaces through the seam, and asks the Wi-Fi collector which
/// networks they are on.
class NetworkStatCollectorMac final : public NetworkStatCollector {
public:
    NetworkStatCollectorMac(Context& context, HistoryDatabaseController& databases, CoreWLanStatCollector& wireless);

    /// The process-wide instance, on Context::shared(). Made anew after cleanupShared().
    static NetworkStatCollectorMac& sharedNetworkCollector();
    static void cleanupShared();

    /// One reading of all interfaces. A table that cannot be read changes nothing.
    void updateStats() override;

protected:
    std::optional<WirelessIdentity> wirelessIdentity(const std::string& name) override;

private:
    CoreWLanStatCollector& wireless_;
};

} // namespace meridal
