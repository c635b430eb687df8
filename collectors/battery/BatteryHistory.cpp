// SPDX-License-Identifier: Apache-2.0
#include "collectors/battery/BatteryHistory.h"

#include "database/SQLiteConnection.h"
#include "database/SqlValue.h"

#include <string_view>
#include <variant>

namespace meridal {

namespace {

/// The columns in the order in which rows are taken apart.
std::string_view changesSelection(BatteryFigure figure)
{
    switch (figure) {
    case BatteryFigure::Cycles:
        return "SELECT rowid, time, uuid, cycles FROM battery_cycles WHERE 1";
    case BatteryFigure::Health:
        return "SELECT rowid, time, uuid, health FROM battery_health WHERE 1";
    case BatteryFigure::Source:
        break;
    }
    return "SELECT rowid, time, uuid, source FROM battery_sources WHERE 1";
}

} // namespace

std::optional<BatteryAnswer> readBatteryHistory(SQLiteConnection& connection, const BatteryQuestion& question)
{
    std::string sql(changesSelection(question.figure));
    SqlValues args;
    const auto require = [&](std::string_view condition, auto value) {
        sql.append(" AND ").append(condition);
        args.emplace_back(std::move(value));
    };
    if (question.key) {
        require("uuid = ?", *question.key);
    }
    if (question.from) {
        require("time >= ?", *question.from);
    }
    if (question.until) {
        require("time < ?", *question.until);
    }
    if (question.before) {
        require("rowid < ?", *question.before);
    }
    // In the order of writing: the clock may have been set in between.
    sql += " ORDER BY rowid DESC LIMIT ?";
    args.emplace_back(static_cast<std::int64_t>(question.limit) + 1);
    BatteryAnswer answer;
    const auto read = connection.forEachRow(sql, args, [&answer](std::span<const SqlValue> row) {
        const auto* key = std::get_if<std::string>(&row[2]);
        answer.rows.push_back({.row = sqlInteger(row[0]),
            .time = sqlNumber(row[1]),
            .key = key ? *key : std::string(),
            .value = sqlNumber(row[3])});
    });
    if (!read) {
        return std::nullopt;
    }
    answer.more = answer.rows.size() > question.limit;
    if (answer.more) {
        answer.rows.resize(question.limit);
    }
    return answer;
}

} // namespace meridal
