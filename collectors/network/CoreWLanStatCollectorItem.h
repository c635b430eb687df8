// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/StatCollectorItem.h"
#include "platform/host/WirelessInterface.h"

#include <utility>

namespace meridal {

/// A Wi-Fi network and when it was last seen.
class CoreWLanStatCollectorItem final : public StatCollectorItem {
public:
    using StatCollectorItem::StatCollectorItem;

    const WirelessIdentity& network() const { return network_; }

    // Of the interface, and called by nothing here
    double lastSeen() const { return lastSeen_; } ///< s since 1970
    void setLastSeen(double time) { lastSeen_ = time; }
    void setNetwork(WirelessIdentity network) { network_ = std::move(network); }

private:
    double lastSeen_ = 0;
    WirelessIdentity network_;
};

} // namespace meridal
