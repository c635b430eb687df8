// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/StatCollector.h"
#include "platform/host/WirelessInterface.h"

#include <memory>
#include <optional>
#include <string>

namespace meridal {

/// Knows the Wi-Fi interface and the network that it is on. It never scans: a scan takes the radio away from whoever uses
/// it, and would ask for a consent that no user can give to a daemon.
class CoreWLanStatCollector final : public StatCollector {
public:
    explicit CoreWLanStatCollector(Context& context);

    /// The process-wide instance, on Context::shared(). Made anew after cleanupShared().
    static CoreWLanStatCollector& sharedCoreWlanCollector();
    static void cleanupShared();

    /// The network that a Wi-Fi interface is on; absent when there is no such interface.
    std::optional<WirelessIdentity> interfaceWithBSD(const std::string& name) const;

    void scan() { }

    std::shared_ptr<StatCollectorItem> makeItem() override;

    // Of the interface, and called by nothing here
    void startScanning() { }
    void stopScanning() { setEnabled(false); }
    bool scanningActive() const { return scanningActive_; }
    void setScanningActive(bool active) { scanningActive_ = active; }

private:
    bool scanningActive_ = false;
};

} // namespace meridal
