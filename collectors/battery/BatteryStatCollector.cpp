// SPDX-License-Identifier: Apache-2.0
#include "collectors/battery/BatteryStatCollector.h"

#include "base/Runtime.h"
#include "database/HistoryDatabaseController.h"
#include "database/SeriesNames.h"
#include "platform/Context.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace meridal {

namespace {

using Recorded = BatteryStatCollectorItem::Recorded;
using Reading = BatteryStatCollectorItem::Reading;

const std::array<TableSchema, 3> tables = {{
    {.table = "battery_cycles",
        .create = "create table %@ (time double NOT NULL, uuid varchar(100) NOT NULL, cycles int NOT NULL)"},
    {.table = "battery_health",
        .create = "create table %@ (time double NOT NULL, uuid varchar(100) NOT NULL, health int NOT NULL)"},
    {.table = "battery_sources",
        .create = "create table %@ (time double NOT NULL, uuid varchar(100) NOT NULL, source int NOT NULL)"},
}};

/// Health is kept in whole percent. A figure at the edge of two would be written again and again without a gap between
/// the way up and the way down.
constexpr double healthStep = 0.55;
/// Readings of a battery kept while its file cannot be read.
constexpr std::size_t mostUnrecorded = 32;

/// The newest row of a battery, or nothing; a failure where the file cannot be read.
Result<std::optional<Dictionary>> newestRow(SQLiteConnection& connection, std::string_view query, const SqlValue& key)
{
    auto rows = connection.rows(query, {&key, 1});
    if (!rows) {
        return unexpected(rows.error().code, rows.error().message);
    }
    return rows->empty() ? std::optional<Dictionary>() : std::optional(std::move(rows->front()));
}

/// What the tables hold of a battery. Absent when they cannot be read.
std::optional<Recorded> readRecorded(SQLiteConnection& connection, const std::string& uuid)
{
    const SqlValue key = uuid;
    const auto cycles =
        newestRow(connection, "SELECT * FROM battery_cycles WHERE uuid = ? ORDER BY time DESC LIMIT 1", key);
    const auto health =
        newestRow(connection, "SELECT * FROM battery_health WHERE uuid = ? ORDER BY time DESC LIMIT 1", key);
    const auto source =
        newestRow(connection, "SELECT * FROM battery_sources WHERE uuid = ? ORDER BY time DESC LIMIT 1", key);
    if (!cycles || !health || !source) {
        return std::nullopt;
    }
    Recorded found{.phase = Recorded::Phase::Known};
    found.cycles = *cycles ? integer(**cycles, "cycles") : std::nullopt;
    found.health = *health ? number(**health, "health") : std::nullopt;
    found.source = *source ? integer(**source, "source") : std::nullopt;
    return found;
}

Reading readingOf(const BatteryStatCollectorItem& item, double time)
{
    return {.time = time,
        .cycles = item.cycles(),
        .health = item.health(),
        .source = static_cast<std::int64_t>(item.source())};
}

} // namespace

BatteryStatCollector::BatteryStatCollector(Context& context)
    : StatCollector(context, "BatteryStatCollector"), dbpath_((context.paths.support / "battery-history.db").string())
{
}

std::shared_ptr<HistoryDatabaseItem> BatteryStatCollector::database() const
{
    std::error_code failure;
    return context().databases && (isRecording_ || std::filesystem::exists(dbpath_, failure))
        ? context().databases->databaseWithPath(dbpath_)
        : nullptr;
}

void BatteryStatCollector::setRecording(bool recording) { isRecording_ = recording; }

void BatteryStatCollector::prepareDatabase()
{
    if (!isRecording_ || std::exchange(preparedDatabase_, true)) {
        return;
    }
    if (const auto file = database()) {
        for (const TableSchema& table : tables) {
            file->declareTable(table);
        }
        declareBatterySleeps(*file);
        declareSeriesNames(*file, {tables[0].table, tables[1].table, tables[2].table});
    }
}

template <typename Question, typename Answer>
void BatteryStatCollector::readPage(const Question& question,
    std::optional<Answer> (*read)(SQLiteConnection&, const Question&), std::function<void(std::optional<Answer>)> reply)
{
    Queue& mainQueue = context().runtime.mainQueue();
    const auto file = database();
    if (!file) {
        mainQueue.post([reply = std::move(reply), isEmpty = !isRecording_] {
            reply(isEmpty ? std::optional(Answer()) : std::nullopt);
        });
        return;
    }
    file->queryDatabaseAsync([question, read, reply = std::move(reply), &mainQueue](SQLiteConnection& connection) {
        mainQueue.post([reply, answer = read(connection, question)] { reply(answer); });
    });
}

void BatteryStatCollector::readHistory(
    const BatteryQuestion& question, std::function<void(std::optional<BatteryAnswer>)> reply)
{
    readPage(question, readBatteryHistory, std::move(reply));
}

void BatteryStatCollector::readSleeps(
    const BatterySleepQuestion& question, std::function<void(std::optional<BatterySleepAnswer>)> reply)
{
    readPage(question, readBatterySleeps, std::move(reply));
}

void BatteryStatCollector::saveSleep(const BatterySleep& sleep)
{
    if (const auto file = database()) {
        file->addItem(batterySleepStatement(sleep));
        file->commit();
    }
}

void BatteryStatCollector::recordChanges()
{
    if (!isRecording_) {
        return;
    }
    for (const auto& each : items()) {
        const auto item = std::static_pointer_cast<BatteryStatCollectorItem>(each);
        if (item->isPeripheral() || !item->key()) {
            continue;
        }
        item->unrecorded().push_back(readingOf(*item, context().runtime.wallTime()));
        if (item->recorded().phase == Recorded::Phase::Known) {
            writeChanges(*item);
            continue;
        }
        if (item->unrecorded().size() > mostUnrecorded) {
            item->unrecorded().erase(item->unrecorded().begin());
        }
        if (item->recorded().phase == Recorded::Phase::NotAsked) {
            loadRecorded(item);
        }
    }
}

void BatteryStatCollector::loadRecorded(const ItemPointer& item)
{
    const auto file = database();
    if (!file) {
        return;
    }
    item->recorded().phase = Recorded::Phase::Asked;
    auto take = lifetime_.guard([this, weak = std::weak_ptr(item)](const std::optional<Recorded>& found) {
        if (const auto living = weak.lock()) {
            takeRecorded(*living, found);
        }
    });
    file->queryDatabaseAsync(
        [key = *item->key(), take, &main = context().runtime.mainQueue()](SQLiteConnection& connection) {
            main.post([take, found = readRecorded(connection, key)]() mutable { take(found); });
        });
}

void BatteryStatCollector::takeRecorded(BatteryStatCollectorItem& item, const std::optional<Recorded>& found)
{
    if (!found) {
        item.recorded().phase = Recorded::Phase::NotAsked; // the next update asks again
        return;
    }
    item.recorded() = *found;
    writeChanges(item);
}

/// Writes of the readings what is another than before.
void BatteryStatCollector::writeChanges(BatteryStatCollectorItem& item)
{
    const std::vector<Reading> readings = std::exchange(item.unrecorded(), {});
    const auto file = database();
    if (!file) {
        return;
    }
    Recorded& recorded = item.recorded();
    bool any = false;
    const auto insert = [&](const char* table, const char* format, double time, std::int64_t value) {
        file->addItem({.table = table, .format = format, .args = {time, *item.key(), value}});
        any = true;
    };
    for (const Reading& reading : readings) {
        if (reading.cycles && reading.cycles != recorded.cycles) {
            insert("battery_cycles", "insert into %@ (time, uuid, cycles) values (?, ?, ?)", reading.time,
                *reading.cycles);
            recorded.cycles = reading.cycles;
        }
        if (reading.health && (!recorded.health || std::abs(*reading.health - *recorded.health) > healthStep)) {
            const double whole = std::round(*reading.health);
            if (whole != recorded.health) {
                insert("battery_health", "insert into %@ (time, uuid, health) values (?, ?, ?)", reading.time,
                    static_cast<std::int64_t>(whole));
                recorded.health = whole;
            }
        }
        if (reading.source != recorded.source.value_or(static_cast<std::int64_t>(BatterySource::Unknown))) {
            insert("battery_sources", "insert into %@ (time, uuid, source) values (?, ?, ?)", reading.time,
                reading.source);
            recorded.source = reading.source;
        }
    }
    if (any) {
        if (!item.name().empty()) {
            file->addItem(seriesNameStatement(
                *item.key(), {.collector = "batteries", .name = item.name(), .origin = "", .unit = ""}));
        }
        file->commit();
    }
}

} // namespace meridal
