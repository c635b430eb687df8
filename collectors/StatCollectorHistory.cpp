// The part of StatCollector that keeps a collector's history going: takes stored history up at start, runs the clocks of
// the coarser storages, and sees that rows reach the files.

#include "base/Log.h"
#include "collectors/StatCollector.h"
#include "collectors/StatCollectorItem.h"
#include "database/HistoryDatabaseController.h"
#include "history/HistoryReader.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace meridal {

namespace {

/// Rows wait this long at most, in seconds, before they are committed. Longer would lose more in a power cut; shorter
/// would write the same pages of the log more often.
constexpr double flushInterval = 30;

/// A clock whose next turn is further away than this many of its intervals shows that the wall clock was set back.
constexpr double longestWaitIntervals = 2;

/// Seconds between attempts to read stored history. Without it clocks must not start: they would count from 0 again.
constexpr double readAgain = 30;

constexpr double hourInterval = static_cast<double>(storageConstants[position(StorageIndex::Hour)].interval);

} // namespace

template <typename Function>
void StatCollector::forEachStorage(HistoryFile which, Function function)
{
    for (std::size_t place = position(StorageIndex::Hour); place < sampleIndex_.size(); ++place) {
        if (const auto index = static_cast<StorageIndex>(place); fileOf(index) == which) {
            function(index);
        }
    }
}

/// The finer ones first.
template <typename Function>
void StatCollector::forEachRunningStorage(Function function)
{
    for (std::size_t place = position(StorageIndex::Hour); place < sampleIndex_.size(); ++place) {
        if (const auto index = static_cast<StorageIndex>(place);
            stateOf(fileOf(index)).phase == HistoryPhase::Running) {
            function(index);
        }
    }
}

void StatCollector::updateHistory()
{
    if (!automaticSampleUpdates_ || !recordsHistory()) {
        return;
    }
    const double steady = context_.runtime.monotonicTime();
    bool isRunning = false;
    for (const HistoryFile which : {HistoryFile::Short, HistoryFile::LongTerm}) {
        HistoryState& state = stateOf(which);
        if (state.phase == HistoryPhase::NotStarted && steady >= state.nextRead) {
            state.nextRead = steady + readAgain;
            startHistory(which);
        }
        isRunning = isRunning || state.phase == HistoryPhase::Running;
    }
    if (!isRunning) {
        return;
    }
    const double now = context_.runtime.wallTime();
    const double wait = nextHistoryTime_ - now;
    if ((wait <= 0 || wait > longestWaitIntervals * hourInterval) && believesWallClock(now, steady)) {
        runHistoryClocks(now);
    }
    if (steady >= nextFlush_) {
        nextFlush_ = steady + flushInterval;
        runDatabaseQueue();
    }
}

// Start

HistoryReadPlan StatCollector::readPlan()
{
    HistoryReadPlan plan;
    plan.valueCount = sampleValueCount_;
    if (const Value* map = find(config_, "addSampleMap")) {
        plan.addSampleMap = *map;
    }
    for (std::size_t place = position(StorageIndex::Hour); place < sampleIndex_.size(); ++place) {
        const auto index = static_cast<StorageIndex>(place);
        HistoryReadPlan::Tables& tables = plan.tables[position(index)];
        if (statementsForIndex(index).insert.text) {
            tables.table = tableAtIndex(index).value_or("");
            tables.itemTable = itemTableAtIndex(index).value_or("");
            tables.slots = sampleIndex_.find(index)->samples.size();
            const HistoryStatements& statements = statementsForIndex(index);
            tables.isPruned = statements.pruneEmpty != nullptr;
            tables.marksEmpty = tables.isPruned && !statements.pruneItem;
        }
    }
    return plan;
}

/// Reads on the file's own queue, and goes on when it has answered.
void StatCollector::startHistory(HistoryFile which)
{
    const auto file = databaseForIndex(which == HistoryFile::Short ? StorageIndex::Hour : StorageIndex::LongTerm);
    auto stored = std::make_shared<StoredHistory>();
    if (!file) {
        adoptHistory(which, *stored);
        return;
    }
    stateOf(which).phase = HistoryPhase::Loading;
    declareTables(which);
    std::vector<StorageIndex> wanted;
    forEachStorage(which, [&wanted](StorageIndex index) { wanted.push_back(index); });
    file->queryDatabaseAsync(
        [stored, plan = readPlan(), wanted = std::move(wanted), &mainQueue = context_.runtime.mainQueue(),
            adopt = lifetime_.guard([this, which, stored] { adoptHistory(which, *stored); })](
            SQLiteConnection& database) {
            for (const StorageIndex index : wanted) {
                stored->readable =
                    stored->readable && readStorage(database, plan, index, stored->storages[position(index)]);
            }
            mainQueue.post(adopt);
        });
}

void StatCollector::adoptHistory(HistoryFile which, const StoredHistory& stored)
{
    HistoryState& state = stateOf(which);
    if (!stored.readable) {
        state.phase = HistoryPhase::NotStarted;
        if (!std::exchange(state.toldUnreadable, true)) {
            context_.log.warning(fmt::format("{}: stored history cannot be read; what belongs to {} waits until it can",
                description_, which == HistoryFile::Short ? dbpath_ : dbpathLong_));
        }
        return;
    }
    state.phase = HistoryPhase::Running;
    double latest = 0;
    forEachStorage(which, [&](StorageIndex index) {
        const StoredStorage& previous = stored.storages[position(index)];
        if (previous.hasNewest) {
            continueClock(previous, index);
        } else {
            checkNextTimeAtIndex(index);
        }
        adoptRows(previous, index);
        latest = std::max(latest, previous.latestTime);
    });
    wallClock_.begin(latest, context_.runtime.monotonicTime());
    if (which == HistoryFile::Short) {
        for (const auto& item : items_) {
            item->setStoredHistoryAsked();
        }
    }
    nextHistoryTime_ = 0;
}

/// Goes on where the rows of a storage end.
void StatCollector::continueClock(const StoredStorage& previous, StorageIndex index)
{
    sampleindexconfig& record = storage(index)->record;
    record.sampleID = static_cast<double>(previous.newestID);
    if (previous.newestTime > 0) {
        record.time = previous.newestTime;
        record.nextTime = record.time + record.interval;
    } else {
        startPeriod(record, index, context_.runtime.wallTime());
    }
    recordedUntil_[position(index)] =
        previous.latestTime > previous.newestTime ? previous.latestTime + record.interval : 0;
    kept_[position(index)].measured.assign(previous.measured.begin(), previous.measured.end());
}

void StatCollector::adoptRows(const StoredStorage& previous, StorageIndex index)
{
    SampleRing& ring = storage(index)->samples;
    const StoredRows& rows = previous.samples;
    for (std::size_t row = 0; row < rows.rows.size() && ring.size() > 0; ++row) {
        const StoredRows::Row& stored = rows.rows[row];
        if (stored.time <= 0) {
            continue; // an average would take it for the end of its period
        }
        ring.shift();
        ring.setLabel(SlotIndex{0}, stored.sampleID, stored.time);
        ring.setEmpty(SlotIndex{0}, stored.empty ? 1 : 0);
        for (std::size_t value = 0; value < rows.valueCount; ++value) {
            ring.setValue(SlotIndex{0}, value, rows.valuesOf(row)[value]);
        }
    }
    for (const auto& item : items_) {
        item->addStoredRows(previous, index);
    }
    if (!previous.items.rows.empty()) {
        noteMeasured(index, previous.items.rows.back().time);
    }
}

/// Items that appeared after the start get their own stored samples, so that the averages of a sensor or disk that comes
/// and goes reach back as far as everybody's.
void StatCollector::loadHistoryOfNewItems()
{
    if (storageType_ != StorageType::Items || stateOf(HistoryFile::Short).phase != HistoryPhase::Running) {
        return;
    }
    for (const auto& item : items_) {
        if (!item->storedHistoryAsked() && !item->temporary() && !item->nohistory()) {
            item->setStoredHistoryAsked();
            loadPreviousSamplesForItem(item, [] {});
        }
    }
}

// The clocks

void StatCollector::runHistoryClocks(double now)
{
    loadHistoryOfNewItems();
    std::array<double, storageCount> before = {};
    forEachRunningStorage([&](StorageIndex index) {
        sampleindexconfig& record = storage(index)->record;
        before[position(index)] = record.sampleID;
        followWallClock(record, index, now);
        skipOldPeriods(record, index, now);
    });
    // In the order in which the periods ended, the finer storage first: an average finds its source complete, and a long
    // gap in the source has not yet pushed out what was measured before it.
    for (auto next = nextToFinish(); next.second <= now; next = nextToFinish()) {
        finishPeriod(next.first);
    }
    forEachRunningStorage([&](StorageIndex index) {
        storage(index)->record.fillingGap = true;
        if (storage(index)->record.sampleID == before[position(index)]) {
            return;
        }
        if (index != StorageIndex::LongTerm) {
            removeOldSamplesAtIndex(index);
        } else if (wallClock_.isSettled(context_.runtime.monotonicTime())) {
            thinLongTerm(now);
        }
    });
    nextHistoryTime_ = nextToFinish().second;
}

bool StatCollector::isClockSynchronised() const
{
    return context_.host.clockSource && context_.host.clockSource->isSynchronised();
}

bool StatCollector::believesWallClock(double now, double steady)
{
    const bool believed = wallClock_.ahead() == 0;
    if (wallClock_.believes(now, steady, [this] { return isClockSynchronised(); })) {
        return true;
    }
    if (believed) {
        context_.log.info(
            fmt::format("{}: the clock is {:.0f} days ahead; recording waits until it has stood there for "
                        "some minutes or is synchronised",
                description_, wallClock_.ahead() / 86'400));
    }
    return false;
}

/// What a wall clock that steps does to a storage. Identifiers always go on. Set back, times start over where the clock
/// now stands; what was recorded before stays, and is not recorded again as a gap while the clock is behind it. Once the
/// clock is past it, the times go on from there: a machine that starts in 1970 and is put right a minute later misses
/// what it missed since its last sample, not half a century.
void StatCollector::followWallClock(sampleindexconfig& record, StorageIndex index, double now)
{
    const double reach = longestWaitIntervals * record.interval;
    double& recorded = recordedUntil_[position(index)];
    if (record.nextTime - now > reach) {
        recorded = std::max(recorded, record.nextTime);
        startPeriod(record, index, now);
        return;
    }
    const bool jumped = now - record.nextTime > reach;
    if (recorded == 0 || (now < recorded && !jumped)) {
        return;
    }
    if (now < recorded) {
        startPeriod(record, index, now);
        return;
    }
    if (jumped) {
        record.nextTime = recorded;
        record.time = record.nextTime - record.interval;
    }
    recorded = 0;
}

std::pair<StorageIndex, double> StatCollector::nextToFinish()
{
    std::pair<StorageIndex, double> next{StorageIndex::Hour, std::numeric_limits<double>::infinity()};
    forEachRunningStorage([&](StorageIndex index) {
        const double time = storage(index)->record.nextTime;
        if (time < next.second) {
            next = {index, time};
        }
    });
    return next;
}

void StatCollector::noteMeasured(StorageIndex index, double time)
{
    double& latest = measuredUntil_[position(index)];
    latest = std::max(latest, time);
}

/// Whether any item can have a sample of the period that has just ended.
bool StatCollector::itemsMeasured(const sampleindexconfig& record) const
{
    const double start = record.time - record.interval;
    if (start <= 0) {
        return true; // averages take everything then
    }
    if (record.historyIndex != StorageIndex::Live) {
        return measuredUntil_[position(record.historyIndex)] > start;
    }
    return std::any_of(items_.begin(), items_.end(), [start](const auto& item) {
        const SampleRing* live = item->storageForType(StorageIndex::Live);
        return live && live->newestTime() > start;
    });
}

void StatCollector::insertEmptyPeriod(StorageIndex index)
{
    const sampleindexconfig& record = storage(index)->record;
    const std::uint64_t sampleID = wholeIdentifier(record.sampleID);
    const Dictionary sample{{"sample", sampleID}, {"time", record.time}, {"empty", 0}, {"items", Value::array()}};
    if (index == StorageIndex::LongTerm) {
        addLongTermSample(sample);
    } else {
        addSample(sample, index);
        for (const auto& item : items_) {
            item->addEmptySample(index, sampleID, record.time);
        }
    }
    insertSampleIntoTableAtIndex(sample, index);
}

} // namespace meridal
