#include "collectors/sensors/SensorLimits.h"

#include "base/Value.h"
#include "database/SQLiteConnection.h"
#include "database/TableSchema.h"

#include <fmt/format.h>

namespace meridal {

namespace {

/// The highest value in the tables that hold the last hour, day and week; 0 when there is none above it. Absent when they
/// cannot be read.
std::optional<double> highestInHistory(SQLiteConnection& database, const SqlValues& key)
{
    double highest = 0;
    for (const char* const prefix : {"hour_", "day_", "week_"}) {
        const auto rows =
            database.rows(fmt::format("SELECT max(value) FROM `{}sensorhistory` where uuid = ?", prefix), key);
        if (!rows) {
            return std::nullopt;
        }
        if (!rows->empty()) {
            highest = std::max(highest, number(rows->front(), "max(value)").value_or(0));
        }
    }
    return highest;
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
        return SeenLimits{
            .low = number(rows->front(), "low").value_or(0), .high = number(rows->front(), "high").value_or(0)};
    }
    const auto highest = highestInHistory(database, argument);
    if (!highest
        || !database.execute("insert into sensor_limits (uuid, high) values (?, ?)", SqlValues{key, *highest})) {
        return std::nullopt; // updates need the row
    }
    return SeenLimits{.low = 0, .high = *highest};
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
