// SPDX-License-Identifier: Apache-2.0
#include "collectors/uptime/UptimeHistory.h"

#include "database/SQLiteConnection.h"
#include "database/SqlValue.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>

namespace meridal {

namespace {

/// Every boot with its length and sleep: from its record, as far as the running boot from the caller (?1 key, ?2 boot
/// time, ?3 length), or else from the bare times, where a shutdown before the boot means that the clock was set. Its end, a BootEnd,
/// likewise: of bare times a shutdown that is the start of a sleep was left by that sleep, after which the machine ran on.
const std::string everyBoot = R"(
    SELECT number, boot, shutdown, asleep, started, length,
        CASE WHEN boot = ?1 THEN 0 WHEN state = 3 THEN 1 WHEN state = 2 THEN 3 WHEN state IS NOT NULL THEN 2
            WHEN shutdown > 0 AND NOT EXISTS (SELECT 1 FROM sleep WHERE start = shutdown) THEN 1 ELSE 2 END AS ending
    FROM (
        SELECT uptime.rowid AS number, uptime.boot AS boot, shutdown, state,
            coalesce(asleep, (SELECT total(max(0, "end" - start)) FROM sleep
                WHERE start >= uptime.boot AND start <= uptime.shutdown)) AS asleep,
            CASE uptime.boot WHEN ?1 THEN ?2 ELSE coalesce(started, uptime.boot) END AS started,
            CASE uptime.boot WHEN ?1 THEN max(?3, coalesce(length, 0))
                ELSE coalesce(length, max(0, shutdown - uptime.boot)) END AS length
        FROM uptime LEFT JOIN boot_records ON boot_records.boot = uptime.boot))";

/// Of those, the ones that a question is about: ?4 from, ?5 until.
const std::string selection = everyBoot + " WHERE started < ?5 AND started + length >= ?4";

std::optional<double> single(SQLiteConnection& connection, const std::string& sql, const SqlValues& args)
{
    std::optional<double> figure;
    const auto done = connection.forEachRow(sql, args, [&figure](std::span<const SqlValue> row) {
        if (!row.empty() && !std::holds_alternative<std::monostate>(row[0])) {
            figure = sqlNumber(row[0]);
        }
    });
    return done ? figure : std::nullopt;
}

static_assert(BootState::Asleep == BootState{2} && BootState::Ended == BootState{3});
static_assert(BootEnd::Running == BootEnd{0} && BootEnd::Orderly == BootEnd{1} && BootEnd::Crash == BootEnd{2}
    && BootEnd::Asleep == BootEnd{3});

BootEnd endFrom(const SqlValue& number) { return static_cast<BootEnd>(static_cast<int>(sqlNumber(number))); }

bool readPage(SQLiteConnection& connection, const UptimeQuestion& question, SqlValues args, UptimeAnswer& answer)
{
    double above = std::numeric_limits<std::int32_t>::max();
    if (question.before) {
        const auto number =
            single(connection, "SELECT max(rowid) FROM uptime WHERE boot = ?", SqlValues{*question.before});
        answer.knowsBefore = number.has_value();
        above = number.value_or(0);
    }
    args.emplace_back(above);
    args.emplace_back(static_cast<std::int64_t>(question.limit) + 1);
    const auto done = connection.forEachRow(
        selection + " AND number < ?6 ORDER BY number DESC LIMIT ?7", args, [&](std::span<const SqlValue> row) {
            BootRow& boot = answer.boots.emplace_back();
            boot.boot = sqlNumber(row[1]);
            boot.started = sqlNumber(row[4]);
            boot.asleep = sqlNumber(row[3]);
            boot.length = sqlNumber(row[5]);
            boot.end = endFrom(row[6]);
            if (boot.end == BootEnd::Orderly || boot.end == BootEnd::Asleep) {
                boot.shutdown = sqlNumber(row[2]);
            }
        });
    answer.more = answer.boots.size() > question.limit;
    answer.boots.resize(std::min(answer.boots.size(), question.limit));
    return done.has_value();
}

/// What is told of all boots, on the page or not.
bool readSums(SQLiteConnection& connection, const SqlValues& args, UptimeAnswer& answer)
{
    BootEnds& ends = answer.ends;
    const auto count = [&](std::span<const SqlValue> row) {
        answer.longest = std::max(answer.longest, sqlNumber(row[2]));
        const auto boots = static_cast<std::uint64_t>(sqlNumber(row[1]));
        switch (endFrom(row[0])) {
        case BootEnd::Running:
            break;
        case BootEnd::Orderly:
            ends.orderly = boots;
            break;
        case BootEnd::Crash:
            ends.crash = boots;
            break;
        case BootEnd::Asleep:
            ends.asleep = boots;
            break;
        }
    };
    return connection
        .forEachRow("SELECT ending, count(*), max(length) FROM (" + selection + ") GROUP BY ending", args, count)
        .has_value();
}

/// Up but not asleep, in relation to the period without the sleep in it.
std::optional<double> availability(SQLiteConnection& connection, const SqlValues& known, double from, double until)
{
    const auto first = single(connection, "SELECT min(started) FROM (" + everyBoot + ")", known);
    if (!first) {
        return std::nullopt;
    }
    SqlValues args = known;
    args.emplace_back(std::max(from, *first));
    args.emplace_back(until);
    const auto up = single(connection,
        "SELECT total(max(0, min(started + length, ?5) - max(started, ?4))) FROM (" + selection + ")", args);
    const SqlValues period = {args[3], args[4]};
    const auto asleep = single(connection,
        R"(SELECT total(max(0, min("end", ?2) - max(start, ?1))) FROM sleep WHERE "end" > ?1 AND start < ?2)", period);
    const double total = until - std::max(from, *first) - asleep.value_or(0);
    if (!up || !asleep || total <= 0) {
        return std::nullopt;
    }
    return std::clamp((*up - *asleep) / total, 0.0, 1.0);
}

bool readSleeps(SQLiteConnection& connection, double from, double until, UptimeAnswer& answer)
{
    const std::string newest =
        R"(SELECT * FROM (SELECT start, "end" FROM sleep WHERE "end" > ? AND start < ? ORDER BY rowid DESC LIMIT 100) ORDER BY start)";
    return connection
        .forEachRow(newest, SqlValues{from, until},
            [&answer](std::span<const SqlValue> row) {
                answer.sleeps.push_back({.start = sqlNumber(row[0]), .end = sqlNumber(row[1])});
            })
        .has_value();
}

} // namespace

std::optional<UptimeAnswer> readUptimeHistory(
    SQLiteConnection& connection, const UptimeQuestion& question, const UptimeNow& now)
{
    UptimeAnswer answer;
    answer.now = now;
    const double until = question.until.value_or(now.wallTime);
    const SqlValues known = {now.boot, now.started, now.elapsed};
    SqlValues args = known;
    args.emplace_back(question.from);
    // A boot that began while the clock stood ahead is there all the same when no end was asked for.
    args.emplace_back(question.until.value_or(std::numeric_limits<double>::max()));
    if (!readPage(connection, question, args, answer) || !readSums(connection, args, answer)) {
        return std::nullopt;
    }
    if (question.withSleeps && !readSleeps(connection, question.from, until, answer)) {
        return std::nullopt;
    }
    answer.asleep =
        single(connection, "SELECT asleep FROM boot_records WHERE boot = ?", SqlValues{now.boot}).value_or(0);
    answer.availability = availability(connection, known, question.from, std::min(until, now.wallTime));
    return answer;
}

} // namespace meridal
