#include "collectors/uptime/UptimeDatabase.h"

#include "base/Text.h"
#include "collectors/uptime/UptimeStatCollector.h"
#include "database/HistoryDatabaseController.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

namespace meridal {

namespace {

const TableSchema uptimeTable = {.table = "uptime",
    .create = "create table %@ (boot double NOT NULL DEFAULT 0, shutdown double NOT NULL DEFAULT 0)"};
const TableSchema sleepTable = {
    .table = "sleep", .create = "create table %@ (start double NOT NULL DEFAULT 0, end double NOT NULL DEFAULT 0)"};
// started: the boot time by the clock as last corrected. length and asleep: s. state: a BootState.
const TableSchema recordTable = {.table = "boot_records",
    .create = "create table %@ (boot double NOT NULL, id varchar(100) NOT NULL, started double NOT NULL, "
              "length double NOT NULL DEFAULT 0, asleep double NOT NULL DEFAULT 0, state int NOT NULL DEFAULT 0)"};

bool hasRow(SQLiteConnection& connection, std::string_view query, const SqlValue& argument)
{
    const auto rows = connection.rows(query, std::span(&argument, 1));
    return rows && !rows->empty();
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

/// The key of a boot: the one it has, or its boot time, which another boot may have too where the clock starts at the
/// same moment every time. Absent when the file cannot be used.
std::optional<double> keyOfBoot(SQLiteConnection& connection, const std::string& identifier, double boot)
{
    const SqlValue id = identifier;
    const auto known = connection.rows("SELECT boot FROM boot_records WHERE id = ?", std::span(&id, 1));
    if (!known) {
        return std::nullopt;
    }
    if (!known->empty()) {
        return number(known->front(), "boot");
    }
    double key = boot;
    while (hasRow(connection, "SELECT boot FROM boot_records WHERE boot = ?", key)) {
        key += 1;
    }
    return key;
}

/// What every note about a boot brings up to date; started and elapsed are NULL while the kernel's boot time is nonsense.
bool note(SQLiteConnection& connection, double boot, const SqlValue& started, const SqlValue& elapsed, BootState state,
    double slept = 0)
{
    return connection
        .execute("UPDATE boot_records SET started = coalesce(?, started), length = max(length, coalesce(?, 0)), "
                 "state = ?, asleep = asleep + ? WHERE boot = ?",
            SqlValues{started, elapsed, static_cast<std::int64_t>(state), slept, boot})
        .has_value();
}

/// One figure of a reading, NULL where there is none.
template <typename Record>
SqlValue orNull(const std::optional<Record>& reading, double Record::*figure)
{
    return reading ? SqlValue(*reading.*figure) : SqlValue();
}

} // namespace

UptimeDatabase::UptimeDatabase(Context& context, HistoryDatabaseController& databases, UptimeStatCollector& collector)
    : context_(context), collector_(collector), database_(databases.databaseWithPath(context.paths.uptimeDatabase()))
{
}

void UptimeDatabase::prepareUptime()
{
    for (const TableSchema& table : {uptimeTable, sleepTable, recordTable}) {
        database_->declareTable(table);
    }
}

std::optional<UptimeDatabase::Reading> UptimeDatabase::read() const
{
    const MachineInfo& machine = *context_.host.machine;
    const auto told = machine.bootTime();
    if (!told || !std::isfinite(*told) || *told < 1) {
        return std::nullopt;
    }
    // The kernel moves its boot time when the clock is set, so their distance is the true time since the boot.
    const double boot = std::floor(*told);
    return Reading{.boot = boot,
        .elapsed = std::max(0.0, context_.runtime.wallTime() - boot),
        .identifier = machine.bootIdentifier().value_or("boot at " + fixed0(boot))};
}

/// Makes sure of the rows of this boot; answers its key, or nothing when the file cannot be used.
std::optional<double> UptimeDatabase::recordBoot(SQLiteConnection& connection, const Reading& reading)
{
    std::optional<double> key;
    const bool done = inTransaction(connection, [&] {
        key = keyOfBoot(connection, reading.identifier, reading.boot);
        if (!key) {
            return false;
        }
        if (!hasRow(connection, "SELECT * FROM uptime WHERE boot = ?", *key)
            && !connection.execute("insert into uptime (boot) values (?)", SqlValues{*key})) {
            return false;
        }
        if (!hasRow(connection, "SELECT * FROM boot_records WHERE boot = ?", *key)
            && !connection.execute("insert into boot_records (boot, id, started) values (?, ?, ?)",
                SqlValues{*key, reading.identifier, reading.boot})) {
            return false;
        }
        return note(connection, *key, reading.boot, reading.elapsed, BootState::Running);
    });
    return done ? key : std::nullopt;
}

void UptimeDatabase::saveBootTime()
{
    const auto reading = read();
    if (!reading) {
        return;
    }
    std::optional<double> key;
    database_->queryDatabase([&](SQLiteConnection& connection) { key = recordBoot(connection, *reading); });
    collector_.setBoottime(key.value_or(reading->boot));
    collector_.setUptime(reading->elapsed);
}

void UptimeDatabase::noteRunning()
{
    const auto reading = read();
    if (!reading) {
        return;
    }
    collector_.setUptime(reading->elapsed);
    auto take = lifetime_.guard([this](double key) { collector_.setBoottime(key); });
    database_->queryDatabaseAsync(
        [reading = *reading, take, &main = context_.runtime.mainQueue()](SQLiteConnection& connection) {
            if (const auto key = recordBoot(connection, reading)) {
                main.post([take, key = *key]() mutable { take(key); });
            }
        });
}

void UptimeDatabase::saveShutdownTime(Farewell why, double time, Task written)
{
    const double boot = collector_.boottime();
    if (boot <= 0) {
        if (written) {
            context_.runtime.mainQueue().post(std::move(written));
        }
        return;
    }
    const auto reading = read();
    const BootState state = why == Farewell::Sleep ? BootState::Asleep : BootState::Ended;
    const auto write = [time, boot, reading, state](SQLiteConnection& connection) {
        inTransaction(connection, [&] {
            return connection.execute("UPDATE uptime SET shutdown = ? WHERE boot = ?", SqlValues{time, boot})
                && note(connection, boot, orNull(reading, &Reading::boot), orNull(reading, &Reading::elapsed), state);
        });
    };
    if (!written) {
        database_->queryDatabase(write);
        return;
    }
    database_->queryDatabaseAsync(
        [write, written = std::move(written), &main = context_.runtime.mainQueue()](SQLiteConnection& connection) {
            write(connection);
            main.post(written);
        });
}

void UptimeDatabase::saveSleep(double start, double end)
{
    const auto reading = read();
    const double length = std::max(0.0, end - start);
    database_->queryDatabaseAsync([start, length, reading, boot = collector_.boottime()](SQLiteConnection& connection) {
        inTransaction(connection, [&] {
            return connection.execute("insert into sleep (start, end) values (?, ?)", SqlValues{start, start + length})
                && note(connection, boot, orNull(reading, &Reading::boot), orNull(reading, &Reading::elapsed),
                    BootState::Running, length);
        });
    });
}

void UptimeDatabase::readHistory(const UptimeQuestion& question, std::function<void(std::optional<UptimeAnswer>)> reply)
{
    UptimeNow now{.boot = std::max(0.0, collector_.boottime()), .wallTime = context_.runtime.wallTime()};
    if (const auto reading = read()) {
        now.started = reading->boot;
        now.elapsed = reading->elapsed;
    }
    database_->queryDatabaseAsync(
        [question, now, reply = std::move(reply), &main = context_.runtime.mainQueue()](SQLiteConnection& connection) {
            main.post([reply, answer = readUptimeHistory(connection, question, now)] { reply(answer); });
        });
}

} // namespace meridal
