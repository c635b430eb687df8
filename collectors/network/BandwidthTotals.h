// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/network/BandwidthDatabase.h"
#include "collectors/network/NetworkStatCollectorBandwidthItem.h"
#include "database/SqlValue.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace meridal {

class SQLiteConnection;

enum class BandwidthGroup {
    Hour,
    Day,
    Month,
    Interface,
    Network, ///< Wi-Fi network: the base stations of one name
    Station, ///< base station
};

/// What is asked of bandwidth.db. Times are s since 1970; a row belongs where its period starts.
struct BandwidthQuestion {
    BandwidthGroup by = BandwidthGroup::Day;
    double from = 0;
    std::optional<double> until;
    std::optional<std::string> interface; ///< only the one that has this name now
    /// Also interfaces without hardware of their own: loopback, bridges, tunnels. Their bytes are those of others again.
    bool all = false;
    SqlValue after; ///< key of the last total of the page before; NULL for the first page
    std::size_t limit = 100;
};

/// What the numbers in the rows stand for now. The file learns of a new name with the next commit only.
struct BandwidthMaps {
    std::vector<BandwidthDatabase::InterfaceRow> interfaces;
    std::vector<BandwidthDatabase::WifiRow> networks; ///< by number
    /// Interfaces that are hardware, though no permanent address tells: modems have none.
    std::vector<std::int64_t> hardware;
};

/// A period that is not in the file yet.
struct BandwidthRow {
    double start = 0;
    double end = 0;
    std::int64_t interface = 0;
    std::int64_t network = -1;
    BandwidthAmount amount;
};

struct BandwidthTotal {
    SqlValue key; ///< the hour, day or month in local time ("2026-11-21 14:00", "2026-11-21", "2026-11"), or a number
    std::optional<std::string> name;  ///< of the interface or the Wi-Fi network
    std::optional<std::string> bssid; ///< of the base station, where the total is about one
    double start = 0;                 ///< s since 1970: of the first row
    double end = 0;                   ///< of the last one
    BandwidthAmount amount;
};

struct BandwidthAnswer {
    std::vector<BandwidthTotal> totals; ///< by key
    bool more = false;                  ///< there are totals behind the last one
    BandwidthAmount sum;                ///< of everything asked for, on this page or not
};

/// Reads one page, the running periods included. Absent when the file cannot be read. On the file's queue.
std::optional<BandwidthAnswer> readBandwidthTotals(SQLiteConnection& connection, const BandwidthQuestion& question,
    const BandwidthMaps& maps, std::span<const BandwidthRow> running);

} // namespace meridal
