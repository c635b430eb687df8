#include "database/SeriesNames.h"

#include <fmt/format.h>

namespace meridal {

const TableSchema& seriesNamesTable()
{
    static const TableSchema table{.table = "names",
        .create = "create table %@ (uuid varchar(100) primary key, name varchar, origin varchar, unit varchar)"};
    return table;
}

PendingStatement seriesNameStatement(const std::string& key, const SeriesName& name)
{
    return {.table = seriesNamesTable().table,
        .format = "insert or replace into %@ (uuid, name, origin, unit) values (?, ?, ?, ?)",
        .args = {key, name.name, name.origin, name.unit}};
}

ViewSchema namedView(const std::string& table)
{
    return {.view = table + "_named",
        .create = fmt::format("CREATE VIEW %@ AS SELECT datetime(rows.time, 'unixepoch', 'localtime') AS ended, "
                              "coalesce(names.name, rows.uuid) AS name, names.origin, names.unit, rows.* "
                              "FROM {} AS rows LEFT JOIN names ON names.uuid = rows.uuid",
            table)};
}

} // namespace meridal
