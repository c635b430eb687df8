// SPDX-License-Identifier: Apache-2.0
#include "collectors/uptime/UptimeDatabase.h"

#include "base/Log.h"
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
// For people. A boot of state 1 that is not the latest crashed, or lost its power.
const ViewSchema bootsView = {.view = "boots",
    .create = "CREATE VIEW %@ AS SELECT datetime(coalesce(records.started, uptime.boot), 'unixepoch', 'localtime') AS "
              "booted, CASE WHEN shutdown > 0 AND coalesce(state, 3) <> 1 THEN datetime(shutdown, 'unixepoch', "
              "'localtime') END AS ended, CASE state WHEN 1 THEN CASE uptime.rowid WHEN (SELECT max(rowid) FROM "
              "uptime) THEN 'running' ELSE 'crash' END WHEN 2 THEN 'asleep' WHEN 3 THEN 'orderly' END AS state, "
              "round(records.length / 3600, 2) AS hours, round(records.asleep / 3600, 2) AS hours_asleep "
              "FROM uptime LEFT JOIN boot_records AS records ON records.boot = uptime.boot ORDER BY uptime.rowid"};
const ViewSchema sleepsView = {.view = "sleeps",
    .create =
        "CREATE VIEW %@ AS SELECT datetime(start, 'unixepoch', 'localtime') AS fell_asleep, datetime(\"end\", "
        "'unixepoch', 'localtime') AS woke, round((\"end\" - start) / 60, 1) AS minutes FROM sleep ORDER BY rowid"};

constexpr int farewellAttempts = 8;       // of 250 ms each: within the 3 s for which the power manager delays a sleep
constexpr double writeRetryInterval = 15; // s
constexpr double longestWaitForKey = 60;  // s
constexpr double vigilInterval = 10;      // s
constexpr double sleepIsAborted = 2 * 60; // s awake since a farewell: logind and macOS both fall asleep within 30 s

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
    database_->declareView(bootsView);
    database_->declareView(sleepsView);
}

std::optional<BootReading> UptimeDatabase::read() const
{
    const MachineInfo& machine = *context_.host.machine;
    const auto told = machine.bootTime();
    if (!told || !std::isfinite(*told) || *told < 1) {
        return std::nullopt;
    }
    // The kernel moves its boot time when the clock is set, so their distance is the true time since the boot.
    const double boot = std::floor(*told);
    return BootReading{.boot = boot,
        .elapsed = std::max(0.0, context_.runtime.wallTime() - boot),
        .identifier = machine.bootIdentifier().value_or("boot at " + fixed0(boot))};
}

// Writing

void UptimeDatabase::write(std::optional<BootEvent> event, int attempts, Task written)
{
    auto take = lifetime_.guard([this](bool done, std::optional<double> key, Task farewell) {
        if (farewell) {
            farewells_.push_back(std::move(farewell));
        }
        conclude(done, key);
    });
    database_->queryDatabaseAsync(
        [journal = journal_, event = std::move(event), attempts, take, written = std::move(written),
            &main = context_.runtime.mainQueue()](SQLiteConnection& connection) {
            if (event) {
                journal->add(*event);
            }
            const bool done = journal->write(connection, attempts);
            main.post([take, written, done, key = journal->key()]() mutable { take(done, key, std::move(written)); });
        });
}

/// The last word of all: it cannot be told later, so this waits for the file, and for no suggestion.
void UptimeDatabase::writeSync(const BootEvent& event, int attempts)
{
    bool done = false;
    std::optional<double> key;
    database_->queryDatabase([&](SQLiteConnection& connection) {
        journal_->add(event);
        journal_->giveUpSuggestion();
        done = journal_->write(connection, attempts);
        key = journal_->key();
    });
    conclude(done, key);
}

void UptimeDatabase::conclude(bool done, std::optional<double> key)
{
    if (key) {
        collector_.setBoottime(*key);
        if (confirmed_) {
            confirmed_();
        }
    }
    if (std::exchange(failing_, !done) && done) {
        context_.log.info(database_->path().string() + ": can be written again");
    }
    if (done) {
        retry_.reset();
    } else {
        retry_ = context_.runtime.startTimer(context_.runtime.mainQueue(), {.first = writeRetryInterval, .leeway = 1},
            [this] { write(std::nullopt, 1); });
    }
    if (key || !done) { // while the key is asked for nothing is written, and no machine may sleep on that
        for (const Task& farewell : std::exchange(farewells_, {})) {
            farewell();
        }
    }
}

void UptimeDatabase::saveBootTime(const AskForKey& askForKey)
{
    noteRunning();
    askForKey(lifetime_.guard([this](std::optional<double> key) {
        database_->queryDatabaseAsync([journal = journal_, key](SQLiteConnection&) { journal->suggestKey(key); });
        write(std::nullopt, 1);
    }));
    // A file may hang for ever in the one that is asked, and must not keep the record of boots waiting with it.
    context_.runtime.after(longestWaitForKey, lifetime_.guard([this] {
        database_->queryDatabaseAsync([journal = journal_](SQLiteConnection&) { journal->giveUpSuggestion(); });
        write(std::nullopt, 1);
    }));
}

void UptimeDatabase::noteRunning()
{
    const auto reading = read();
    if (!reading) {
        return;
    }
    collector_.setUptime(reading->elapsed);
    if (!vigil_) {
        known_ = true;
        write(BootEvent{.reading = reading}, 1);
    }
}

void UptimeDatabase::saveShutdownTime(Farewell why, double time, Task written)
{
    if (!known_) {
        if (written) {
            context_.runtime.mainQueue().post(std::move(written));
        }
        return;
    }
    if (why == Farewell::Sleep) {
        keepVigil();
    }
    const BootEvent event{
        .state = why == Farewell::Sleep ? BootState::Asleep : BootState::Ended, .reading = read(), .shutdown = time};
    if (written) {
        write(event, farewellAttempts, std::move(written));
    } else {
        writeSync(event, farewellAttempts);
    }
}

void UptimeDatabase::saveSleep(double start, double end)
{
    vigil_.reset();
    BootEvent wake{.reading = known_ ? read() : std::nullopt};
    if (end > start) {
        wake.sleep = BootEvent::Sleep{.start = start, .length = end - start};
    }
    write(std::move(wake), 1);
}

// Between a farewell and the wake

/// Until the machine wakes nothing may say that it runs, or a sleep without end would look like a crash. But a sleep
/// can be called off without a word: then time passes awake. On macOS the clock counts sleep, and the machine may half
/// wake for moments, so only an unbroken row of ticks is time awake.
void UptimeDatabase::keepVigil()
{
    const double begin = context_.runtime.monotonicTime();
    auto tick = [this, awakeSince = begin, last = begin]() mutable {
        const double now = context_.runtime.monotonicTime();
        if (now - std::exchange(last, now) > 2 * vigilInterval) {
            awakeSince = now;
        }
        if (now - awakeSince >= sleepIsAborted) {
            vigil_.reset();
            noteRunning();
        }
    };
    vigil_ = context_.runtime.startTimer(
        context_.runtime.mainQueue(), {.first = vigilInterval, .interval = vigilInterval}, tick);
}

// Reading

void UptimeDatabase::readHistory(const UptimeQuestion& question, std::function<void(std::optional<UptimeAnswer>)> reply)
{
    UptimeNow now{.wallTime = context_.runtime.wallTime()};
    std::string identifier;
    if (const auto reading = read()) {
        now.started = reading->boot;
        now.elapsed = reading->elapsed;
        identifier = reading->identifier;
    }
    database_->queryDatabaseAsync([journal = journal_, question, now, identifier, reply = std::move(reply),
                                      &main = context_.runtime.mainQueue()](SQLiteConnection& connection) mutable {
        const auto key = journal->key();
        now.boot = (key ? key : UptimeJournal::keyOf(connection, identifier)).value_or(0);
        main.post([reply, answer = readUptimeHistory(connection, question, now)] { reply(answer); });
    });
}

} // namespace meridal
