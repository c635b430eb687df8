// SPDX-License-Identifier: Apache-2.0
#include "collectors/sensors/KeptSensors.h"

#include "database/SQLiteConnection.h"
#include "database/TableSchema.h"

#include <cstdint>
#include <utility>

namespace meridal {

const TableSchema& keptSensorsTable()
{
    static const TableSchema table{.table = "client_sensors",
        .create = "create table %@ (uuid varchar(100) primary key, request integer, config varchar)"};
    return table;
}

std::string keptForm(const SensorConfiguration& configuration)
{
    Value kept{{"key", configuration.key}, {"name", configuration.name}};
    if (configuration.isWatts) {
        kept["type"] = "watts";
    } else if (configuration.type) {
        kept["type"] = *configuration.type;
    }
    if (configuration.hasFixedLimits()) {
        kept["low"] = configuration.low;
        kept["high"] = configuration.high;
    }
    if (configuration.multiply) {
        kept["multiply"] = *configuration.multiply;
    }
    if (configuration.average) {
        kept["average"] = *configuration.average;
    }
    return serialise(kept);
}

KeptSensors readKeptSensors(SQLiteConnection& database, std::size_t most)
{
    KeptSensors kept;
    const SqlValues limit = {static_cast<std::int64_t>(most)};
    static_cast<void>(database.execute("delete from client_sensors where rowid not in "
                                       "(select rowid from client_sensors order by rowid desc limit ?)",
        limit));
    const auto rows = database.rows("select request, config from client_sensors order by rowid desc limit ?", limit);
    if (!rows) {
        return kept;
    }
    for (auto row = rows->rbegin(); row != rows->rend(); ++row) { // in the order in which they were given
        auto configuration = parseUntrusted(text(*row, "config").value_or(""));
        if (!configuration) {
            continue;
        }
        const auto request = static_cast<SensorRequest>(integer(*row, "request").value_or(0));
        Value& list = request == SensorRequest::Fans ? kept.fans
            : request == SensorRequest::Services     ? kept.services
                                                     : kept.sensors;
        list.push_back(std::move(*configuration));
    }
    return kept;
}

} // namespace meridal
