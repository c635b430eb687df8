// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Runtime.h"
#include "platform/host/NetworkInterfaces.h"

#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

struct Context;
class HistoryDatabaseController;
class HistoryDatabaseItem;
class SQLiteConnection;

/// What one interface carried on one network in one period, ready to be stored.
struct BandwidthRecord {
    std::string interface;                  ///< its name
    std::optional<HardwareAddress> address; ///< permanent
    std::optional<std::string> bssid;
    std::optional<std::string> networkName;
    double start = 0; ///< s since 1970
    double end = 0;
    double upload = 0; ///< bytes
    double download = 0;
};

/// bandwidth.db: the samples, and the numbers under which they name interfaces and Wi-Fi networks. An interface with a
/// permanent address keeps its number when its name changes. Nothing here waits for the file but the end:
/// numbers are given out from a copy of the maps, and everything is queued, in order, until it can be written.
/// Main queue only.
class BandwidthDatabase {
public:
    /// A row of "bandwidth_interface_map", with what we know of the interface besides.
    struct InterfaceRow {
        std::string interface;
        std::int64_t identifier = 0;
        std::optional<std::string> address; ///< permanent, "aa:bb:cc:dd:ee:ff"
    };
    /// A row of "bandwidth_wifi_map".
    struct WifiRow {
        std::string bssid;
        std::string name;
        std::int64_t identifier = 0;
    };

    BandwidthDatabase(Context& context, HistoryDatabaseController& databases, const std::filesystem::path& path);

    /// Declares the tables, which are made, and older ones brought up to date.
    void prepare();
    /// Reads the maps; the task runs on the main queue afterwards. What fails is tried again by retry().
    void loadMaps(Task done = {});
    bool mapsLoaded() const { return mapsLoaded_; }

    /// Its number, given out at the first sight of it; 0 while the maps are not known.
    std::int64_t identifierForInterface(const std::string& name, const std::optional<HardwareAddress>& address = {});
    /// The number of a Wi-Fi network, by its base station; it keeps the first name that it had. -1 without a base
    /// station, or while the maps are not known.
    std::int64_t identifierForBSSID(const std::optional<std::string>& bssid, const std::optional<std::string>& name);

    /// Queues a row for the next commit.
    void addSample(BandwidthRecord record);
    /// Writes what is queued. With `written`, returns at once and runs that on the main queue afterwards; without, waits.
    void commit(Task written);
    void commitLater();
    /// To be called now and then: tries again what could not be read or written.
    void retry();

    const std::vector<InterfaceRow>& interfaceMap() const { return interfaces_; }
    const std::vector<WifiRow>& wifiMap() const { return networks_; }
    const std::shared_ptr<HistoryDatabaseItem>& file() const { return file_; }

    /// Rows kept: 19 years of one interface that never rests, about 60 MB.
    static constexpr std::int64_t keptSamples = 1'000'000;

private:
    struct Maps {
        std::vector<InterfaceRow> interfaces;
        std::vector<WifiRow> networks;
        std::int64_t lastInterface = 0; ///< the highest number ever given out
        std::int64_t lastNetwork = 0;
        std::int64_t lastSample = 0;
    };
    static std::optional<Maps> readMaps(SQLiteConnection& connection);
    void takeMaps(Maps maps);
    std::int64_t newInterface(const std::string& name, const std::optional<std::string>& address);
    void writeInterface(const InterfaceRow& row);
    void writeSample(const BandwidthRecord& record);
    void prune();

    Context& context_;
    std::shared_ptr<HistoryDatabaseItem> file_;
    std::vector<InterfaceRow> interfaces_;
    std::vector<WifiRow> networks_;
    std::int64_t lastInterface_ = 0;
    std::int64_t lastNetwork_ = 0;
    std::int64_t lastSample_ = 0;
    bool mapsLoaded_ = false;
    bool mapsAreRead_ = false;            ///< on the file's queue, now
    std::deque<BandwidthRecord> waiting_; ///< until the maps are known
    double nextRetry_ = 0;                ///< monotonic s
    Lifetime lifetime_;
};

/// "aa:bb:cc:dd:ee:ff"
std::string textOf(const HardwareAddress& address);

} // namespace meridal
