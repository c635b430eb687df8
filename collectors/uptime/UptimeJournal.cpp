// SPDX-License-Identifier: Apache-2.0
#include "collectors/uptime/UptimeJournal.h"

#include "database/SQLiteConnection.h"
#include "database/SqlValue.h"

#include <cstdint>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

/// Absent when the file cannot be read.
std::optional<bool> hasRow(SQLiteConnection& connection, std::string_view query, double argument)
{
    const auto rows = connection.rows(query, SqlValues{argument});
    return rows ? std::optional(!rows->empty()) : std::nullopt;
}

/// Runs statements as one transaction, which is undone when one of them fails; answers whether it is in the file.
template <typename Statements>
bool inTransaction(SQLiteConnection& connection, const Statements& statements)
{
    if (connection.execute("BEGIN IMMEDIATE") && statements() && connection.execute("COMMIT")) {
        return true;
    }
    if (connection.inTransaction()) {
        static_cast<void>(connection.execute("ROLLBACK"));
    }
    return false;
}

/// Looks for the key of a boot; false when the file cannot be read.
bool findKey(SQLiteConnection& connection, const std::string& identifier, std::optional<double>& key)
{
    const SqlValue id = identifier;
    const auto known = connection.rows("SELECT boot FROM boot_records WHERE id = ?", std::span(&id, 1));
    if (known && !known->empty()) {
        key = number(known->front(), "boot");
    }
    return known.has_value();
}

/// A boot time that no other boot has for its key: two may share it where the clock starts at the same moment always.
std::optional<double> freeKey(SQLiteConnection& connection, double boot)
{
    for (;; boot += 1) {
        const auto taken = hasRow(connection, "SELECT boot FROM boot_records WHERE boot = ?", boot);
        if (!taken) {
            return std::nullopt;
        }
        if (!*taken) {
            return boot;
        }
    }
}

/// Brings a boot's record up to date. What the reading would tell stays as it was where there is none.
bool updateRecord(SQLiteConnection& connection, double key, const BootEvent& event)
{
    const SqlValue started = event.reading ? SqlValue(event.reading->boot) : SqlValue();
    const SqlValue elapsed = event.reading ? SqlValue(event.reading->elapsed) : SqlValue();
    return connection
        .execute("UPDATE boot_records SET started = coalesce(?, started), length = max(length, coalesce(?, 0)), "
                 "state = ?, asleep = asleep + ? WHERE boot = ?",
            SqlValues{
                started, elapsed, static_cast<std::int64_t>(event.state), event.sleep ? event.sleep->length : 0.0, key})
        .has_value();
}

bool writeEvent(SQLiteConnection& connection, const BootEvent& event, std::optional<double> key)
{
    if (event.sleep) {
        const auto [start, length] = *event.sleep;
        if (!connection.execute("insert into sleep (start, end) values (?, ?)", SqlValues{start, start + length})) {
            return false;
        }
    }
    if (!key) {
        return true;
    }
    if (event.shutdown
        && !connection.execute("UPDATE uptime SET shutdown = ? WHERE boot = ?", SqlValues{*event.shutdown, *key})) {
        return false;
    }
    return updateRecord(connection, *key, event);
}

} // namespace

void UptimeJournal::suggestKey(std::optional<double> key)
{
    suggested_ = key;
    awaitsSuggestion_ = false;
}

void UptimeJournal::add(BootEvent event)
{
    if (event.isNote() && !waiting_.empty() && waiting_.back().isNote()) {
        waiting_.pop_back();
    }
    waiting_.push_back(std::move(event));
    if (waiting_.size() > mostWaiting) {
        waiting_.pop_front();
    }
}

bool UptimeJournal::write(SQLiteConnection& connection, int attempts)
{
    if (awaitsSuggestion_) {
        return true;
    }
    for (; attempts > 0 && !waiting_.empty(); --attempts) {
        std::optional<double> key = key_;
        connection.resetFailure(); // of the attempt before
        if (inTransaction(connection, [&] { return writeAll(connection, key); })) {
            key_ = key;
            waiting_.clear();
        } else if (connection.failure() != SqlFailure::Busy) {
            break; // it would be the same again
        }
    }
    return waiting_.empty();
}

bool UptimeJournal::writeAll(SQLiteConnection& connection, std::optional<double>& key) const
{
    for (const BootEvent& event : waiting_) {
        if (event.reading) {
            key = ensureRows(connection, *event.reading, key);
            if (!key) {
                return false;
            }
        }
        if (!writeEvent(connection, event, key)) {
            return false;
        }
    }
    return true;
}

/// Makes sure of the rows of this boot, also in a fresh file; answers its key, or nothing when the file cannot be used.
std::optional<double> UptimeJournal::ensureRows(
    SQLiteConnection& connection, const BootReading& reading, std::optional<double> key) const
{
    if (!key && !findKey(connection, reading.identifier, key)) {
        return std::nullopt;
    }
    if (!key) {
        key = freeKey(connection, suggested_.value_or(reading.boot));
    }
    if (!key) {
        return std::nullopt;
    }
    const auto boot = hasRow(connection, "SELECT * FROM uptime WHERE boot = ?", *key);
    if (!boot || (!*boot && !connection.execute("insert into uptime (boot) values (?)", SqlValues{*key}))) {
        return std::nullopt;
    }
    const auto record = hasRow(connection, "SELECT * FROM boot_records WHERE boot = ?", *key);
    if (!record
        || (!*record
            && !connection.execute("insert into boot_records (boot, id, started) values (?, ?, ?)",
                SqlValues{*key, reading.identifier, reading.boot}))) {
        return std::nullopt;
    }
    return key;
}

std::optional<double> UptimeJournal::keyOf(SQLiteConnection& connection, const std::string& identifier)
{
    std::optional<double> key;
    findKey(connection, identifier, key);
    return key;
}

} // namespace meridal
