// The part of StatCollector that deals in time: the one-second clock, and the hand-over of finished periods to history.

#include "collectors/StatCollector.h"
#include "collectors/StatCollectorItem.h"
#include "history/LongTermThinning.h"
#include "platform/Context.h"

#include <algorithm>
#include <cmath>

namespace meridal {

namespace {

constexpr double turn = 1.0; ///< s between turns of the clock

/// A first turn closer than this would come before start-up has settled.
constexpr double shortestFirstWait = 0.1;

/// A turn that would wait longer than this means that the wall clock has stepped back.
constexpr double longestWait = 2.0;

/// A long-term period is not started with less of it than this left, in seconds.
constexpr double shortestLongTermPeriod = 60;

/// The long-term store writes every missed period that is young enough for rows of five minutes: older ones would be
/// thinned at once, and a clock that starts in 1970 and is then set right must not keep the daemon busy with half a century.
constexpr double longestLongTermGap = longTermSteps[0].age;

/// Moves a clock over whole periods that begin before `until`, without writing them.
void skipPeriods(sampleindexconfig& record, double until)
{
    if (record.nextTime < until) {
        const double periods = std::ceil((until - record.nextTime) / record.interval);
        record.sampleID += periods;
        record.nextTime += periods * record.interval;
        record.time = record.nextTime - record.interval;
    }
}

} // namespace

// History

std::optional<Dictionary> StatCollector::historySampleForIndex(StorageIndex index)
{
    return storageType_ == StorageType::Items ? historyItemsForIndex(index) : historyItemForIndex(index);
}

Dictionary StatCollector::historyItemsForIndex(StorageIndex index)
{
    Value samples = Value::array();
    for (const auto& item : items_) {
        if (item->nohistory() || item->temporary()) {
            continue;
        }
        if (auto sample = item->historyItemForIndex(index)) {
            samples.push_back(std::move(*sample));
        }
    }
    return {{"items", std::move(samples)}, {"empty", 0}};
}

void StatCollector::insertSampleWithIndex(StorageIndex index)
{
    const SampleStorage* found = storage(index);
    if (!found) {
        return;
    }
    if (storageType_ == StorageType::Items && !itemsMeasured(found->record)) {
        insertEmptyPeriod(index); // gaps are long and items many: an empty period must cost next to nothing
        return;
    }
    const double time = found->record.time;
    const std::uint64_t sampleID = wholeIdentifier(found->record.sampleID);
    std::optional<Dictionary> sample = historySampleForIndex(index);
    if (!sample) {
        return;
    }
    const auto stamp = [&](Dictionary& dictionary) {
        if (dictionary.is_object()) {
            dictionary["sample"] = sampleID;
            dictionary["time"] = time;
        }
    };
    stamp(*sample);
    bool measured = storageType_ == StorageType::Collector && !isEmptySample(*sample);
    const auto items = sample->find("items");
    if (items != sample->end() && items->is_array()) {
        std::for_each(items->begin(), items->end(), stamp);
    }
    if (index == StorageIndex::LongTerm) {
        addLongTermSample(*sample);
    } else {
        addSample(*sample, index);
        measured = addSampleToItems(*sample, index) || measured;
    }
    if (measured) {
        kept_[position(index)].note(sampleID);
    }
    insertSampleIntoTableAtIndex(*sample, index);
}

bool StatCollector::addSampleToItems(const Dictionary& sample, StorageIndex index)
{
    bool measured = false;
    const Value* samples = find(sample, "items");
    if (storageType_ != StorageType::Items || !samples || !samples->is_array()) {
        return measured;
    }
    // The samples come in the order of the items, with some left out: looking on from the last one found is enough.
    auto expected = items_.begin();
    for (const Value& itemSample : *samples) {
        const Value* uuid = find(itemSample, "uuid");
        if (!uuid || !uuid->is_string()) {
            continue;
        }
        const auto& key = uuid->get_ref<const std::string&>();
        expected = std::find_if(
            expected, items_.end(), [&](const auto& item) { return item->key() == key && !item->temporary(); });
        const auto item = expected != items_.end() ? *expected++ : itemWithKey(key);
        if (item) {
            item->addSample(itemSample, index);
            if (!isEmptySample(itemSample)) {
                noteMeasured(index, number(itemSample, "time").value_or(0));
                measured = true;
            }
        }
    }
    return measured;
}

void StatCollector::pushClockToItems(const sampleindexconfig& record, StorageIndex index)
{
    for (const auto& item : items_) {
        item->setTimeForSampleIndex(index, record.time);
        item->setNextTimeForSampleIndex(index, record.nextTime);
        item->setSampleIDForSampleIndex(index, record.sampleID);
    }
}

void StatCollector::finishPeriod(StorageIndex index)
{
    sampleindexconfig& record = storage(index)->record;
    record.sampleID += 1;
    record.time = record.nextTime;
    record.nextTime = record.time + record.interval;
    pushClockToItems(record, index);
    insertSampleWithIndex(index);
}

void StatCollector::skipOldPeriods(sampleindexconfig& record, StorageIndex index, double now)
{
    const bool longTerm = index == StorageIndex::LongTerm;
    skipPeriods(record, now - (longTerm ? longestLongTermGap : historyIntervals * record.interval));
}

void StatCollector::fillGapsAtIndex(StorageIndex index)
{
    SampleStorage* found = storage(index);
    if (!found || found->record.time == 0) {
        return;
    }
    sampleindexconfig& record = found->record;
    const double now = context_.runtime.wallTime();
    if (now > record.nextTime) {
        skipOldPeriods(record, index, now);
        do {
            finishPeriod(index);
        } while (record.nextTime < now);
    }
    record.fillingGap = true;
}

void StatCollector::startPeriod(sampleindexconfig& record, StorageIndex index, double now)
{
    if (index == StorageIndex::LongTerm) {
        record.nextTime = std::ceil(now / record.interval) * record.interval;
        if (now + shortestLongTermPeriod > record.nextTime) {
            record.nextTime += record.interval;
        }
    } else {
        record.nextTime = std::ceil(now) + record.interval;
    }
    record.time = record.nextTime - record.interval;
}

void StatCollector::checkNextTimeAtIndex(StorageIndex index)
{
    SampleStorage* found = storage(index);
    if (!found || found->record.nextTime != 0) {
        return;
    }
    sampleindexconfig& record = found->record;
    startPeriod(record, index, context_.runtime.wallTime());
    record.sampleID = 0;
    insertSampleIntoTableAtIndex(emptySampleWithIdentifier(0, record.time), index);
    runDatabaseQueue();
}

// The clock

void StatCollector::startLogging()
{
    clock_.end(); // a clock that runs already gives way to this one
    sampleindexconfig& live = storage(StorageIndex::Live)->record;
    const double now = context_.runtime.wallTime();
    live.nextTime = std::ceil(now);
    if (live.nextTime - now < shortestFirstWait) {
        live.nextTime += turn;
    }
    updateSequence_ = 0;
    scheduleTurn(live.nextTime - now);
}

void StatCollector::scheduleTurn(double seconds)
{
    context_.runtime.after(seconds, clock_.guard([this] { updateSamplesAndLogging(); }));
}

void StatCollector::updateSamplesAndLogging()
{
    if (stopped_) {
        return;
    }
    if (measuring_) {
        advanceClock(); // started over while the turn of before is still measuring: let this one pass
        return;
    }
    sampleindexconfig& live = storage(StorageIndex::Live)->record;
    live.time = live.nextTime;
    // Bound to this run of the clock: the measurement may start the clock over, end it or destroy the collector.
    Task finish = clock_.guard([this] { finishTurn(); });
    if (!shouldUpdateStateForSequence(updateSequence_)) {
        finish();
        return;
    }
    live.sampleID += 1;
    auto self = threadedUpdating() ? weak_from_this().lock() : nullptr;
    if (self) {
        measureOnGlobalQueue(std::move(self), std::move(finish));
    } else {
        updateStatsForSequence(updateSequence_);
        finish();
    }
}

void StatCollector::measureOnGlobalQueue(std::shared_ptr<StatCollector> self, Task finish)
{
    measuring_ = true;
    context_.runtime.postGlobal(
        [self = std::move(self), finish = std::move(finish), sequence = updateSequence_]() mutable {
            self->updateStatsForSequence(sequence);
            Queue& mainQueue = self->context_.runtime.mainQueue();
            // The main queue takes over this reference, so that the collector is never destroyed on the global queue.
            mainQueue.post([self = std::move(self), finish = std::move(finish)] {
                self->measuring_ = false;
                if (self->cleanedUp_) {
                    self->queue_.reset();
                }
                finish();
            });
        });
}

void StatCollector::finishTurn()
{
    if (!stopped_) {
        updateHistory();
        advanceClock();
    }
}

void StatCollector::advanceClock()
{
    sampleindexconfig& live = storage(StorageIndex::Live)->record;
    const double now = context_.runtime.wallTime();
    ++updateSequence_;
    live.nextTime += turn;
    const double wait = live.nextTime - now;
    if (wait < 0 || wait > longestWait) {
        live.nextTime =
            std::ceil(now) + turn; // overload, sleep, or a clock that stepped: missed turns are not made up for
    }
    scheduleTurn(live.nextTime - now);
}

} // namespace meridal
