// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/Limitations.h"
#include "platform/host/NetworkInterfaces.h"
#include "platform/linux/kernel/NetlinkSocket.h"
#include "platform/linux/kernel/RootFolder.h"
#include "platform/linux/network/LinkMessages.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

/// The interfaces of this network namespace, by rtnetlink: one dump of the counters a reading, those of links and of
/// addresses only after one of them was announced to have changed, and one question for the route to the outside.
class NetlinkInterfaces final : public NetworkInterfaces {
public:
    /// `root` holds sys, which tells wireless and cellular devices from others.
    NetlinkInterfaces(const std::filesystem::path& root, std::shared_ptr<Limitations> limitations);

    const NetworkReading* read() override;
    const NetworkReading* latest() const override { return hasReading_ ? &reading_ : nullptr; }

private:
    using AddressesByIndex = std::multimap<std::int32_t, InterfaceAddress>;

    void takeNews();
    bool readCounters();
    bool readLinks();
    void readAddresses();
    void giveAddresses();
    std::optional<PrimaryService> readPrimary();
    std::optional<rtnl::Route> routeTo(const InterfaceAddress& destination);
    InterfaceKind kindOf(const rtnl::Link& link);

    RootFolder folder_;
    std::shared_ptr<Limitations> limitations_;
    NetlinkSocket questions_;
    NetlinkSocket news_;
    NetworkReading reading_;
    bool hasReading_ = false;
    bool hearsNews_ = false;
    bool linksStale_ = true;
    bool addressesStale_ = true;
    bool tellsCounters_ = true; ///< the kernel does, without the rest of the link; every one since 4.7
    AddressesByIndex addresses_;
    std::vector<InterfaceRecord> gone_; ///< since the reading
    std::map<std::pair<std::int32_t, std::string>, InterfaceKind> kinds_;
};

} // namespace meridal
