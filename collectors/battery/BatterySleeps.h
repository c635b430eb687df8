// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "database/SqlValue.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace meridal {

class HistoryDatabaseItem;
class SQLiteConnection;

/// One sleep of the machine, and what it cost its own batteries together.
struct BatterySleep {
    std::int64_t row = 0;                    ///< names it for ever
    double start = 0;                        ///< s since 1970
    double end = 0;                          ///< s since 1970
    bool onBattery = false;                  ///< before and after: no adapter can have paid for it
    std::optional<double> chargeBefore = {}; ///< %
    std::optional<double> chargeAfter = {};
    std::optional<double> energyBefore = {}; ///< mWh
    std::optional<double> energyAfter = {};

    /// % of the charge an hour; negative where it grew. Absent where it was on AC power, or is not known.
    std::optional<double> percentPerHour() const;
    /// W over the sleep, negative while drained as in all figures of batteries. Absent likewise.
    std::optional<double> power() const;
};

/// What is asked of the record of sleeps.
struct BatterySleepQuestion {
    bool worst = false;         ///< by the charge lost an hour, those over an hour on battery; else the newest first
    std::optional<double> from; ///< s since 1970
    std::optional<std::int64_t> after; ///< row of the page before
    std::size_t limit = 50;
};

struct BatterySleepAnswer {
    std::vector<BatterySleep> sleeps;
    bool more = false;
};

/// Makes sure of the table `battery_sleeps` and of a view for people.
void declareBatterySleeps(HistoryDatabaseItem& file);
PendingStatement batterySleepStatement(const BatterySleep& sleep);
/// Reads one page. Absent when the file cannot be read. On the file's queue.
std::optional<BatterySleepAnswer> readBatterySleeps(SQLiteConnection& connection, const BatterySleepQuestion& question);

} // namespace meridal
