// SPDX-License-Identifier: Apache-2.0
#include "collectors/sensors/SensorLimits.h"

#include "base/Value.h"
#include "database/SQLiteConnection.h"
#include "database/TableSchema.h"

#include <fmt/format.h>

namespace meridal {

namespace {

/// The highest value in the tables that hold the last hour, day and week; no value without any. False when they cannot
/// be read.
bool readHighest(SQLiteConnection& database, const SqlValues& key, std::optional<double>& highest)
{
    for (const char* const prefix : {"hour_", "day_", "week_"}) {
        const auto rows =
            database.rows(fmt::format("SELECT max(value) FROM `{}sensorhistory` where uuid = ?", prefix), key);
        if (!rows) {
            return false;
        }
        const auto value = rows->empty() ? std::nullopt : number(rows->front(), "max(value)");
        if (value && (!highest || *value > *highest)) {
            highest = value;
        }
    }
    return true;
}

/// Whether the row's figures were measured, whatever they are.
bool isMeasured(SQLiteConnection& database, const SqlValues& key)
{
    const auto rows = database.rows("select 1 from recorded_series where collector = 'sensors' and uuid = ?", key);
    return rows && !rows->empty();
}

} // namespace

const TableSchema& sensorLimitsTable()
{
    static const TableSchema table{.table = "sensor_limits",
        .create = "create table %@ (uuid varchar(100) NOT NULL, low double NOT NULL DEFAULT 0, high double NOT NULL "
                  "DEFAULT 0)"};
    return table;
}

std::optional<SeenLimits> readSensorLimits(SQLiteConnection& database, const std::string& key)
{
    const SqlValues argument = {key};
    const auto rows = database.rows("SELECT * FROM sensor_limits WHERE uuid = ?", argument);
    if (!rows) {
        return std::nullopt;
    }
    if (!rows->empty()) {
        SeenLimits seen{.low = number(rows->front(), "low"), .high = number(rows->front(), "high")};
        const bool isMadeAnew = seen.low && seen.high && *seen.low > *seen.high;
        if (isMadeAnew || !isMeasured(database, argument)) {
            seen.low = isMadeAnew || seen.low == 0 || seen.low == -1 ? std::nullopt : seen.low;
            seen.high = seen.high == 0 ? std::nullopt : seen.high;
        }
        return seen;
    }
    SeenLimits seen;
    if (!readHighest(database, argument, seen.high)
        || !database.execute(
            "insert into sensor_limits (uuid, high) values (?, ?)", SqlValues{key, seen.high.value_or(0)})) {
        return std::nullopt; // updates need the row
    }
    // The sensor may be among the recorded series and its row lost: what nobody has measured must not pass for measured,
    // and a low above the high never was.
    if (isMeasured(database, argument)
        && !database.execute("update sensor_limits set low = high + 1 where uuid = ?", argument)) {
        return std::nullopt;
    }
    return seen;
}

std::vector<std::optional<SeenLimits>> readSensorLimits(
    SQLiteConnection& database, const std::vector<std::string>& keys)
{
    std::vector<std::optional<SeenLimits>> all;
    const bool isOneTransaction = database.execute("BEGIN IMMEDIATE").has_value();
    for (const std::string& key : keys) {
        all.push_back(readSensorLimits(database, key));
    }
    if (isOneTransaction && database.inTransaction() && !database.execute("COMMIT")) {
        static_cast<void>(database.execute("ROLLBACK"));
        all.assign(keys.size(), std::nullopt); // new rows went with it
    }
    return all;
}

} // namespace meridal
