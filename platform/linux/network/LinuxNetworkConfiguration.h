// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/NetworkConfiguration.h"
#include "platform/linux/kernel/RootFolder.h"
#include "platform/linux/network/DhcpClients.h"

#include <filesystem>
#include <string>

namespace meridal {

/// Asks whoever has configured the link: NetworkManager, systemd-networkd, else a DHCP client that runs on its own.
class LinuxNetworkConfiguration final : public NetworkConfiguration {
public:
    /// An empty bus address means the machine's system bus.
    LinuxNetworkConfiguration(const std::filesystem::path& root, std::string busAddress);

    Result<void> refreshLease(const std::string& interfaceName) override;
    Result<void> setNetworkSet(const std::string& identifier) override;

private:
    Result<void> renew(const LeaseRenewal& renewal, const std::string& interfaceName) const;

    RootFolder folder_;
    DhcpClients clients_;
    std::string busAddress_;
};

} // namespace meridal
