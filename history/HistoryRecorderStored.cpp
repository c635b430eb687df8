// SPDX-License-Identifier: Apache-2.0
// The part of HistoryRecorder that deals in what is stored: takes it up at the start, and reads it for clients.

#include "base/Log.h"
#include "database/HistoryDatabaseItem.h"
#include "history/HistoryRecorder.h"
#include "platform/Context.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace meridal {

std::vector<std::shared_ptr<HistoryDatabaseItem>> HistoryRecorder::databases() const
{
    return {databaseForIndex(StorageIndex::Hour), databaseForIndex(StorageIndex::LongTerm)};
}

/// Reads on the file's own queue, and goes on when it has answered.
void HistoryRecorder::loadPreviousSamples(HistoryFile which)
{
    const auto file = databaseForIndex(which == HistoryFile::Short ? StorageIndex::Hour : StorageIndex::LongTerm);
    auto stored = std::make_shared<StoredHistory>();
    if (!file) {
        adoptHistory(which, *stored);
        return;
    }
    stateOf(which).phase = Phase::Loading;
    tables_.declareTables(which);
    file->queryDatabaseAsync([stored, plan = tables_.readPlan(), which, &mainQueue = context_.runtime.mainQueue(),
                                 adopt = lifetime_.guard([this, which, stored] { adoptHistory(which, *stored); })](
                                 SQLiteConnection& database) {
        for (const StorageIndex index : recordedStorages) {
            stored->readable = stored->readable
                && (fileOf(index) != which || readStorage(database, plan, index, stored->storages[position(index)]));
        }
        database.releaseMemory(); // what reads it all is run once
        mainQueue.post(adopt);
    });
}

void HistoryRecorder::adoptHistory(HistoryFile which, const StoredHistory& stored)
{
    FileState& state = stateOf(which);
    if (!stored.readable) {
        state.phase = Phase::NotStarted;
        if (!std::exchange(state.toldUnreadable, true)) {
            context_.log.warning(fmt::format("{}: stored history cannot be read; what belongs to {} waits until it can",
                traits().description, which == HistoryFile::Short ? traits().dbpath : traits().dbpathLong));
        }
        return;
    }
    state.phase = Phase::Running;
    double latest = 0;
    for (const StorageIndex index : recordedStorages) {
        if (fileOf(index) == which) {
            adoptStorage(index, stored.storages[position(index)]);
            latest = std::max(latest, stored.storages[position(index)].latestTime);
        }
    }
    wallClock_.begin(latest, context_.runtime.monotonicTime());
    for (auto& [key, item] : items_) {
        item.storedHistoryAsked = item.storedHistoryAsked || which == HistoryFile::Short;
    }
    nextHistoryTime_ = 0;
}

void HistoryRecorder::adoptStorage(StorageIndex index, const StoredStorage& stored)
{
    const double now = context_.runtime.wallTime();
    tables_.setMeasured(index, stored.measured);
    if (stored.hasNewest) {
        clock(index).goOnFrom(stored, now);
    } else {
        clock(index).start(now);
        insertSampleIntoTableAtIndex({.sampleID = 0, .time = sampleIndex(index).time, .items = {}}, index);
        runDatabaseQueue();
    }
    if (!isOfItems()) {
        own_.addStoredRows(index, stored.samples);
    }
    for (const auto& [key, item] : items_) {
        if (const auto samples = item.samples.lock()) {
            samples->addStoredRows(index, stored, key);
        }
    }
    if (!stored.items.rows.empty()) {
        double& latest = measuredUntil_[position(index)];
        latest = std::max(latest, stored.items.rows.back().time);
    }
}

/// Items that appeared after the start get their own stored samples, so that the averages of a sensor or disk that comes
/// and goes reach back as far as everybody's.
void HistoryRecorder::loadHistoryOfNewItems()
{
    for (auto& [key, item] : items_) {
        const auto samples = item.samples.lock();
        if (samples && stateOf(HistoryFile::Short).phase == Phase::Running
            && !std::exchange(item.storedHistoryAsked, true)) {
            loadPreviousSamplesForItem(key, samples);
        }
    }
}

void HistoryRecorder::loadPreviousSamplesForItem(const std::string& key, const std::shared_ptr<SampleStorages>& item)
{
    const auto file = databaseForIndex(StorageIndex::Hour);
    if (!file) {
        return;
    }
    HistoryReadPlan plan = tables_.readPlan();
    plan.onlyKey = key;
    auto stored = std::make_shared<StoredHistory>();
    Task adopt = lifetime_.guard([this, item, stored, key] {
        if (!stored->readable) {
            if (const auto found = items_.find(key); found != items_.end()) {
                found->second.storedHistoryAsked = false; // the next turn asks again
            }
            return;
        }
        for (const StorageIndex index : recordedStorages) {
            item->addStoredRows(index, stored->storages[position(index)], key);
        }
    });
    file->commit(); // the latest may be this item's
    file->queryDatabaseAsync([plan = std::move(plan), stored, adopt = std::move(adopt),
                                 &mainQueue = context_.runtime.mainQueue()](SQLiteConnection& database) {
        for (const StorageIndex index : recordedStorages) {
            if (index != StorageIndex::LongTerm) {
                stored->readable =
                    readStorage(database, plan, index, stored->storages[position(index)]) && stored->readable;
            }
        }
        mainQueue.post(adopt);
    });
}

void HistoryRecorder::readHistory(
    const HistoryPageQuestion& question, std::function<void(const std::optional<HistoryPage>&)> reply)
{
    const auto file = databaseForIndex(question.index);
    const HistoryReadPlan::Tables& tables = tables_.readPlan().tables[position(question.index)];
    const std::string table = isOfItems() ? tables.itemTable : tables.table;
    Queue& mainQueue = context_.runtime.mainQueue();
    HistoryReadPlan plan = tables_.readPlan();
    plan.withBands = question.withBands;
    if (!file || table.empty()) {
        mainQueue.post([reply = std::move(reply)] { reply(HistoryPage()); });
        return;
    }
    file->commit();
    file->queryDatabaseAsync(
        [plan = std::move(plan), question, table, reply = std::move(reply), &mainQueue](SQLiteConnection& database) {
            mainQueue.post([page = readPage(database, table, plan, question), reply] { reply(page); });
        });
}

namespace {

/// Reads the tables of one file into what is there already.
bool addMomentOf(SQLiteConnection& database, const HistoryReadPlan& plan, HistoryFile which, HistoryMoment& moment)
{
    for (const StorageIndex index : recordedStorages) {
        RowsOfSpan rows;
        if (fileOf(index) == which) {
            if (!readSpan(database, plan, index, moment.spanOf(index), rows)) {
                return false;
            }
            moment.add(index, std::move(rows));
        }
    }
    return true;
}

} // namespace

/// One file after the other, each on its own queue.
void HistoryRecorder::readMoment(double time, std::function<void(const std::shared_ptr<const HistoryMoment>&)> reply)
{
    struct Reading {
        std::shared_ptr<HistoryMoment> moment;
        bool failed = false;
    };
    const auto reading = std::make_shared<Reading>();
    reading->moment = std::make_shared<HistoryMoment>(time, std::max(time, context_.runtime.wallTime()));
    Task next = [reading, reply = std::move(reply), &mainQueue = context_.runtime.mainQueue()] {
        mainQueue.post([reading, reply] { reply(reading->failed ? nullptr : reading->moment); });
    };
    for (const StorageIndex index : {StorageIndex::LongTerm, StorageIndex::Hour}) { // the last to be asked comes first
        const auto file = databaseForIndex(index);
        if (!file) {
            continue;
        }
        next = [file, which = fileOf(index), plan = tables_.readPlan(), reading, next = std::move(next)] {
            file->commit();
            file->queryDatabaseAsync([which, plan, reading, next](SQLiteConnection& database) {
                reading->failed = reading->failed || !addMomentOf(database, plan, which, *reading->moment);
                next();
            });
        };
    }
    next();
}

} // namespace meridal
