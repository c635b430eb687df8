// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"
#include "collectors/network/BandwidthDatabase.h"
#include "collectors/network/NetworkStatCollectorBandwidthItem.h"
#include "collectors/network/WifiTraffic.h"
#include "platform/host/WirelessInterface.h"

#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace meridal {

struct Context;

/// Interface name → the Wi-Fi network that it is on; an empty identity for Wi-Fi hardware that answers nothing.
using WifiMap = std::map<std::string, WirelessIdentity>;

/// Turns counter readings into rows of bandwidth.db: one per interface, Wi-Fi network and period of ten minutes. Main
/// queue only.
class BandwidthAccount {
public:
    using Items = std::map<std::string, NetworkStatCollectorBandwidthItem>;

    BandwidthAccount(Context& context, BandwidthDatabase& database);

    /// Starts on the ten-minute grid.
    void start();
    /// One reading of all interfaces.
    void update(const NetworkReading& reading, const WifiMap& wifi);
    /// Ends the period of every item now. With `written`, returns at once and runs that on the main queue when all is in
    /// the file; without, waits for that.
    void save(Task written);

    /// By name of the interface. One that goes leaves its item until what it carried is stored.
    const Items& items() const { return items_; }
    const WifiTraffic& wifiTraffic() const { return wifiTraffic_; }
    double nextUpdateTime() const { return nextUpdateTime_; } ///< s since 1970; a multiple of the period

    static constexpr double period = 600; ///< s
    /// A period with no more than 100 KiB in either direction is dropped: idle interfaces would fill the file.
    static constexpr bool isWorthARow(const BandwidthAmount& amount)
    {
        return amount.upload > 102'400 || amount.download > 102'400;
    }

private:
    using Item = NetworkStatCollectorBandwidthItem;

    void noticeClockStep(double now);
    void noteSharedAddresses(const NetworkReading& reading);
    void takeLastWords(const std::vector<InterfaceRecord>& gone, double now);
    void moveRenamed(const NetworkReading& reading, double now);
    bool isSame(const Item& item, const InterfaceRecord& record) const;
    bool addReading(const InterfaceRecord& record, const WifiMap& wifi, double now);
    void count(Item& item, const InterfaceRecord& record, double now);
    bool joinNetwork(Item& item, const WirelessIdentity& identity, bool leaving);
    void flush(Item& item, double end, double nextStart);
    void flushAll(double end);
    void passBoundary(const NetworkReading& reading, double now);
    std::optional<HardwareAddress> identityOf(const InterfaceRecord& record) const;

    Context& context_;
    BandwidthDatabase& database_;
    Items items_;
    WifiTraffic wifiTraffic_;
    std::set<HardwareAddress> sharedAddresses_; ///< more than one interface has them, so they tell none apart
    double nextUpdateTime_ = 0;
    double lastWall_ = 0; ///< s since 1970, of the last update; 0 before
};

} // namespace meridal
