// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/StatCollector.h"
#include "collectors/network/BandwidthAccount.h"
#include "collectors/network/BandwidthDatabase.h"
#include "collectors/network/BandwidthTotals.h"
#include "platform/host/NetworkInterfaces.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

class HistoryDatabaseController;
class NetworkStatCollectorItem;

/// The network interfaces of the machine: what they are, how fast they carry, which of them is the primary one and which
/// Wi-Fi networks they are on. Keeps the account of bandwidth. The portable part; a host's subclass reads.
class NetworkStatCollector : public StatCollector {
public:
    /// Posted, with the collector as object, when interfaces come, go or get other names, addresses or links, and when
    /// another one becomes primary.
    static constexpr const char* setupChanged = "STAT_COLLECTION_NETWORK_SETUP_CHANGED";

    NetworkStatCollector(Context& context, HistoryDatabaseController& databases);
    ~NetworkStatCollector() override;

    // Interfaces
    std::shared_ptr<NetworkStatCollectorItem> interfaceWithBSD(const std::string& name);
    /// What is known of the primary interface: "interface", "router", "wifi-bssid". Empty while there is none.
    const Dictionary& primarySettings() const { return primarySettings_; }
    /// The networks that the traffic of Wi-Fi interfaces belongs to: those they were on last.
    const WifiMap& wifiMap() const { return wifiMap_; }
    /// Those that they are on now; an empty identity while one is on none.
    const WifiMap& joinedWifi() const { return joinedWifi_; }
    std::shared_ptr<StatCollectorItem> makeItem() override;

    // Bandwidth
    void setBandwidthDataasePath(std::string path);
    void setBandwidthMonitoringEnabled(bool enabled) { bandwidthMonitoringEnabled_ = enabled; }
    /// Declares the tables, which are made and migrated when the file is open. Nothing without a path.
    void prepareBandwidthDatabase();
    /// Has the maps of interfaces and networks read, and begins on the ten-minute grid.
    void prepareBandwidthMonitoring();
    std::int64_t identifierForInterface(const std::string& name);
    std::int64_t identifierForBSSID(const std::optional<std::string>& bssid, const std::optional<std::string>& name);
    /// Stores what every interface has carried up to now: before sleep and at the end. With `written`, returns at once
    /// and runs that on the main queue afterwards; without, waits.
    void saveBandwidth(Task written = {});
    /// Adds up what is stored and what is not yet; the answer comes on the main queue, null when it cannot be read.
    void readBandwidthTotals(BandwidthQuestion question, std::function<void(std::optional<BandwidthAnswer>)> reply);
    /// What Wi-Fi networks have carried since the start; none without an account.
    std::vector<WifiTraffic::Network> wifiTraffic() const;
    /// The account and its file; null without a path.
    BandwidthDatabase* bandwidthDatabase() const { return bandwidthDatabase_.get(); }

    // Of the interface, and called by nothing here
    /// How often another Wi-Fi network was found on the primary interface.
    std::uint64_t primaryNetworkChanges() const { return primaryNetworkChanges_; }
    const std::string& bandwidthDataasePath() const { return bandwidthDataasePath_; }
    bool bandwidthMonitoringEnabled() const { return bandwidthMonitoringEnabled_; }
    const BandwidthAccount::Items& bandwidthItems() const;
    const std::vector<BandwidthDatabase::InterfaceRow>& bandwidthInterfaceMap() const;
    const std::vector<BandwidthDatabase::WifiRow>& bandwidthWifiMap() const;
    double nextBandwidthUpdateTime() const; ///< s since 1970

protected:
    /// Takes one reading of all interfaces over.
    void takeReading(const NetworkReading& reading);
    /// The network that a Wi-Fi interface is on; absent without such an interface.
    virtual std::optional<WirelessIdentity> wirelessIdentity(const std::string& name) = 0;

private:
    bool updateItems(const NetworkReading& reading);
    void refreshPrimarySettings(const NetworkReading& reading);
    void tellPrimary(const std::optional<PrimaryService>& primary);
    void refreshWifi();

    HistoryDatabaseController& databases_;
    std::string bandwidthDataasePath_;
    std::unique_ptr<BandwidthDatabase> bandwidthDatabase_;
    std::unique_ptr<BandwidthAccount> bandwidth_;
    bool bandwidthMonitoringEnabled_ = false;
    Dictionary primarySettings_ = Dictionary::object();
    std::optional<PrimaryService> primary_;
    WifiMap wifiMap_;
    WifiMap joinedWifi_;
    std::uint64_t primaryNetworkChanges_ = 0;
};

} // namespace meridal
