// SPDX-License-Identifier: Apache-2.0
#include "database/SeriesNames.h"

#include "database/HistoryDatabaseItem.h"

#include <fmt/format.h>

namespace meridal {

namespace {

/// `names` was a table of its own once. What only it knew stays, as nobody's series.
const ViewSchema names{.view = "names",
    .create = "CREATE VIEW %@ AS SELECT uuid, name, origin, unit FROM (SELECT uuid, name, origin, CASE count(DISTINCT "
              "unit) WHEN 1 THEN unit ELSE '' END AS unit, max(collector) FROM recorded_series GROUP BY uuid)",
    .takeOver = {"UPDATE recorded_series SET origin = (SELECT origin FROM names WHERE names.uuid = "
                 "recorded_series.uuid) WHERE origin IS NULL",
        "INSERT INTO recorded_series (collector, uuid, name, origin, unit, step) SELECT '', uuid, name, origin, unit, "
        "0 "
        "FROM names WHERE NOT EXISTS (SELECT 1 FROM recorded_series AS known WHERE known.uuid = names.uuid)"}};

ViewSchema namedView(const std::string& table)
{
    return {.view = table + "_named",
        .create = fmt::format("CREATE VIEW %@ AS SELECT datetime(rows.time, 'unixepoch', 'localtime') AS ended, "
                              "coalesce(names.name, rows.uuid) AS name, names.origin, names.unit, rows.* "
                              "FROM {} AS rows LEFT JOIN names ON names.uuid = rows.uuid",
            table)};
}

} // namespace

const TableSchema& recordedSeriesTable()
{
    static const TableSchema table{.table = "recorded_series",
        .create = "create table %@ (collector varchar(32), uuid varchar(100), name varchar, origin varchar, unit "
                  "varchar(16), step double, primary key (collector, uuid))",
        .added = {{.column = "origin", .alter = "ALTER TABLE %@ ADD COLUMN origin varchar"}}};
    return table;
}

PendingStatement seriesNameStatement(const std::string& key, const SeriesName& name)
{
    return {.table = recordedSeriesTable().table,
        .format = "insert or replace into %@ (collector, uuid, name, origin, unit, step) values (?, ?, ?, ?, ?, ?)",
        .args = {name.collector, key, name.name, name.origin, name.unit, name.step}};
}

void declareSeriesNames(HistoryDatabaseItem& file, const std::vector<std::string>& tables)
{
    file.declareTable(recordedSeriesTable());
    file.declareView(names);
    for (const std::string& table : tables) {
        file.declareView(namedView(table));
    }
}

} // namespace meridal
