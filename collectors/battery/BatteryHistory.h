// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

class SQLiteConnection;

/// What is kept of a battery over the years; each in a table of its own.
enum class BatteryFigure { Cycles, Health, Source };

/// What is asked of the history. Times are s since 1970.
struct BatteryQuestion {
    BatteryFigure figure = BatteryFigure::Health;
    std::optional<std::string> key; ///< of one battery; all of them when absent
    std::optional<double> from;
    std::optional<double> until;
    std::optional<std::int64_t> before; ///< only rows that were written before this one, for the next page
    std::size_t limit = 100;
};

struct BatteryRow {
    std::int64_t row = 0; ///< names it for ever
    double time = 0;      ///< s since 1970
    std::string key;
    double value = 0;
};

struct BatteryAnswer {
    std::vector<BatteryRow> rows; ///< newest first
    bool more = false;            ///< there are older ones
};

/// Reads one page. Absent when the file cannot be read. On the file's queue.
std::optional<BatteryAnswer> readBatteryHistory(SQLiteConnection& connection, const BatteryQuestion& question);

} // namespace meridal
