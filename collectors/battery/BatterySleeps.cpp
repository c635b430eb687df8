// SPDX-License-Identifier: Apache-2.0
#include "collectors/battery/BatterySleeps.h"

#include "database/HistoryDatabaseItem.h"
#include "database/SQLiteConnection.h"

#include <string>
#include <string_view>
#include <variant>

namespace meridal {

namespace {

constexpr double secondsOfHour = 3600;

constexpr std::string_view sleepsTable = "battery_sleeps";

SqlValue figureOrNull(const std::optional<double>& figure) { return figure ? SqlValue(*figure) : SqlValue(); }

std::optional<double> figureOf(const SqlValue& value)
{
    return std::holds_alternative<std::monostate>(value) ? std::nullopt : std::optional(sqlNumber(value));
}

/// What was lost of a figure in an hour.
std::optional<double> lostAnHour(
    const BatterySleep& sleep, const std::optional<double>& before, const std::optional<double>& after)
{
    const double hours = (sleep.end - sleep.start) / secondsOfHour;
    return sleep.onBattery && before && after && hours > 0 ? std::optional((*before - *after) / hours) : std::nullopt;
}

BatterySleep sleepFrom(std::span<const SqlValue> row)
{
    return {.row = sqlInteger(row[0]),
        .start = sqlNumber(row[1]),
        .end = sqlNumber(row[2]),
        .onBattery = sqlNumber(row[3]) != 0,
        .chargeBefore = figureOf(row[4]),
        .chargeAfter = figureOf(row[5]),
        .energyBefore = figureOf(row[6]),
        .energyAfter = figureOf(row[7])};
}

constexpr std::string_view selection =
    "WITH sleeps AS (SELECT rowid AS number, start, time, on_battery, charge_before, charge_after, energy_before, "
    "energy_after, (charge_before - charge_after) / (time - start) AS rate FROM battery_sleeps) "
    "SELECT number, start, time, on_battery, charge_before, charge_after, energy_before, energy_after FROM sleeps ";

} // namespace

std::optional<double> BatterySleep::percentPerHour() const { return lostAnHour(*this, chargeBefore, chargeAfter); }

std::optional<double> BatterySleep::power() const
{
    constexpr double milliwatts = 1000;
    const auto lost = lostAnHour(*this, energyBefore, energyAfter);
    return lost ? std::optional(-*lost / milliwatts) : std::nullopt;
}

void declareBatterySleeps(HistoryDatabaseItem& file)
{
    file.declareTable({.table = std::string(sleepsTable),
        .create =
            "create table %@ (time double NOT NULL, start double NOT NULL, on_battery int NOT NULL, charge_before "
            "double, charge_after double, energy_before double, energy_after double)"});
    file.declareView({.view = "sleep_drain",
        .create = "CREATE VIEW %@ AS SELECT datetime(start, 'unixepoch', 'localtime') AS fell_asleep, datetime(time, "
                  "'unixepoch', 'localtime') AS woke, round((time - start) / 3600, 2) AS hours, on_battery, "
                  "round(charge_before - charge_after, 2) AS percent_lost, round(energy_before - energy_after) AS "
                  "mwh_lost FROM battery_sleeps ORDER BY rowid"});
}

PendingStatement batterySleepStatement(const BatterySleep& sleep)
{
    return {.table = std::string(sleepsTable),
        .format = "insert into %@ (time, start, on_battery, charge_before, charge_after, energy_before, energy_after) "
                  "values (?, ?, ?, ?, ?, ?, ?)",
        .args = {sleep.end, sleep.start, std::int64_t{sleep.onBattery}, figureOrNull(sleep.chargeBefore),
            figureOrNull(sleep.chargeAfter), figureOrNull(sleep.energyBefore), figureOrNull(sleep.energyAfter)}};
}

std::optional<BatterySleepAnswer> readBatterySleeps(SQLiteConnection& connection, const BatterySleepQuestion& question)
{
    std::string sql(selection);
    SqlValues args;
    sql += question.worst ? "WHERE on_battery = 1 AND time - start >= 3600 AND rate IS NOT NULL" : "WHERE 1";
    if (question.from) {
        sql += " AND start >= ?";
        args.emplace_back(*question.from);
    }
    if (question.after) {
        sql += question.worst ? " AND (rate, number) < (SELECT rate, number FROM sleeps WHERE number = ?)"
                              : " AND number < ?";
        args.emplace_back(*question.after);
    }
    // In the order of writing: the clock may have been set in between.
    sql += question.worst ? " ORDER BY rate DESC, number DESC LIMIT ?" : " ORDER BY number DESC LIMIT ?";
    args.emplace_back(static_cast<std::int64_t>(question.limit) + 1);
    BatterySleepAnswer answer;
    const auto read = connection.forEachRow(
        sql, args, [&answer](std::span<const SqlValue> row) { answer.sleeps.push_back(sleepFrom(row)); });
    if (!read) {
        return std::nullopt;
    }
    answer.more = answer.sleeps.size() > question.limit;
    if (answer.more) {
        answer.sleeps.resize(question.limit);
    }
    return answer;
}

} // namespace meridal
