// SPDX-License-Identifier: Apache-2.0
// The part of HistoryRecorder that deals in time: which periods end, and what they are handed over with.

#include "history/HistoryRecorder.h"

#include "base/Log.h"
#include "database/HistoryDatabaseItem.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace meridal {

namespace {

/// A next period that ends further away than this shows that the wall clock was set back, in seconds.
constexpr double longestWait = 2 * static_cast<double>(storageConstants[position(StorageIndex::Hour)].interval);

/// Seconds between attempts to read stored history. Without it clocks must not start: they would count from 0 again.
constexpr double readAgain = 30;

/// The identifier that a clock's counter stands for; 0 for nonsense.
std::uint64_t wholeIdentifier(double sampleID)
{
    return sampleID >= 0 && sampleID <= largestIdentifier ? static_cast<std::uint64_t>(sampleID) : 0;
}

} // namespace

HistoryRecorder::HistoryRecorder(Context& context, HistoryTraits traits)
    : context_(context), tables_(context, std::move(traits)), own_(isOfItems() ? 0 : this->traits().columns.size())
{
    for (std::size_t place = 0; place < storageCount; ++place) {
        clocks_.emplace_back(static_cast<StorageIndex>(place));
    }
}

HistoryRecorder::~HistoryRecorder() = default;

std::optional<std::size_t> HistoryRecorder::columnNamed(std::string_view name) const
{
    const auto& columns = traits().columns;
    const auto found = std::find(columns.begin(), columns.end(), name);
    return found == columns.end() ? std::nullopt : std::optional<std::size_t>(found - columns.begin());
}

std::shared_ptr<SampleStorages> HistoryRecorder::item(const std::string& key)
{
    Item& item = items_[key];
    auto samples = item.samples.lock();
    if (!samples) {
        samples = std::make_shared<SampleStorages>(traits().columns.size());
        item = {.samples = samples};
    }
    return samples;
}

/// Calls it with key and samples; items that nobody holds any more are forgotten.
template <typename Function>
void HistoryRecorder::forEachItem(Function function)
{
    for (auto each = items_.begin(); each != items_.end();) {
        if (const auto samples = each->second.samples.lock()) {
            function(each->first, *samples);
            ++each;
        } else {
            each = items_.erase(each);
        }
    }
}

/// The finer ones first.
template <typename Function>
void HistoryRecorder::forEachRunningStorage(Function function)
{
    for (const StorageIndex index : recordedStorages) {
        if (stateOf(fileOf(index)).phase == Phase::Running) {
            function(index);
        }
    }
}

void HistoryRecorder::setRecording(bool recording)
{
    if (recording == isRecording_) {
        return;
    }
    const bool hasBegun = std::any_of(
        states_.begin(), states_.end(), [](const FileState& state) { return state.phase != Phase::NotStarted; });
    if (!recording && hasBegun) {
        runDatabaseQueue();
    }
    isRecording_ = recording;
    tables_.setRecording(recording);
}

void HistoryRecorder::updateHistory()
{
    if (!isRecording_) {
        return;
    }
    const double steady = context_.runtime.monotonicTime();
    bool isRunning = false;
    for (const HistoryFile which : historyFiles) {
        FileState& state = stateOf(which);
        if (state.phase == Phase::NotStarted && steady >= state.nextRead) {
            state.nextRead = steady + readAgain;
            loadPreviousSamples(which);
        }
        isRunning = isRunning || state.phase == Phase::Running;
    }
    if (!isRunning) {
        return;
    }
    const double now = context_.runtime.wallTime();
    const double wait = nextHistoryTime_ - now;
    if ((wait <= 0 || wait > longestWait) && believesWallClock(now, steady)) {
        runHistoryClocks(now);
    }
    if (commits_ && steady >= nextFlush_) {
        nextFlush_ = steady + commitInterval;
        runDatabaseQueue();
    }
}

void HistoryRecorder::runDatabaseQueue()
{
    beforeCommit_();
    tables_.runDatabaseQueue();
}

// The clocks

void HistoryRecorder::runHistoryClocks(double now)
{
    loadHistoryOfNewItems();
    std::array<double, storageCount> before = {};
    forEachRunningStorage([&](StorageIndex index) {
        before[position(index)] = sampleIndex(index).sampleID;
        clock(index).followWallClock(now);
        clock(index).skipOldPeriods(now);
    });
    // In the order in which the periods ended, the finer storage first: an average finds its source complete, and a long
    // gap in the source has not yet pushed out what was measured before it.
    for (auto next = nextToFinish(); next.second <= now; next = nextToFinish()) {
        clock(next.first).finishPeriod();
        insertSampleWithIndex(next.first);
    }
    forEachRunningStorage([&](StorageIndex index) {
        const double newest = sampleIndex(index).sampleID;
        if (newest == before[position(index)]) {
            return;
        }
        tables_.removeOldSamplesAtIndex(index, newest);
        if (index == StorageIndex::LongTerm && wallClock_.isSettled(context_.runtime.monotonicTime())) {
            tables_.thinLongTerm(
                now, isClockSynchronised() ? LongTermThinning::Oldest::Removed : LongTermThinning::Oldest::Kept);
        }
    });
    nextHistoryTime_ = nextToFinish().second;
}

std::pair<StorageIndex, double> HistoryRecorder::nextToFinish()
{
    std::pair<StorageIndex, double> next{StorageIndex::Hour, std::numeric_limits<double>::infinity()};
    forEachRunningStorage([&](StorageIndex index) {
        const double time = sampleIndex(index).nextTime;
        if (time < next.second) {
            next = {index, time};
        }
    });
    return next;
}

bool HistoryRecorder::isClockSynchronised() const
{
    return context_.host.clockSource && context_.host.clockSource->isSynchronised();
}

bool HistoryRecorder::believesWallClock(double now, double steady)
{
    const bool believed = wallClock_.ahead() == 0;
    if (wallClock_.believes(now, steady, [this] { return isClockSynchronised(); })) {
        return true;
    }
    if (believed) {
        context_.log.info(
            fmt::format("{}: the clock is {:.0f} days ahead; recording waits until it has stood there for "
                        "some minutes or is synchronised",
                traits().description, wallClock_.ahead() / 86'400));
    }
    return false;
}

// Periods

/// Whether any item can have a sample of the period that has just ended.
bool HistoryRecorder::itemsMeasured(StorageIndex index)
{
    const double start = sampleIndex(index).time - sampleIndex(index).interval;
    if (start <= 0) {
        return true; // averages take everything then
    }
    const StorageIndex source = storageConstants[position(index)].historyIndex;
    if (source != StorageIndex::Live) {
        return measuredUntil_[position(source)] > start;
    }
    return std::any_of(items_.begin(), items_.end(), [start](const auto& item) {
        const auto samples = item.second.samples.lock();
        return samples && samples->storageForType(StorageIndex::Live).newestTime() > start;
    });
}

/// Hands the finished period over to history.
void HistoryRecorder::insertSampleWithIndex(StorageIndex index)
{
    PeriodSample sample{
        .sampleID = wholeIdentifier(sampleIndex(index).sampleID), .time = sampleIndex(index).time, .items = {}};
    const auto average = [&](SampleStorages& samples) {
        const SampleAverages averages = samples.averagesForIndex(index, sample.time);
        samples.addSample(index, sample.sampleID, sample.time, averages.figures());
        return averages;
    };
    if (!isOfItems()) {
        sample.own = average(own_);
    } else if (itemsMeasured(index)) {
        forEachItem([&](const std::string& key, SampleStorages& samples) {
            if (const SampleAverages averages = average(samples); averages.samples > 0) {
                measuredUntil_[position(index)] = std::max(measuredUntil_[position(index)], sample.time);
                sample.items.push_back({key, averages});
            }
        });
    } else { // gaps are long and items many: an empty period must cost next to nothing
        forEachItem([&](const std::string&, SampleStorages& samples) {
            samples.addSample(index, sample.sampleID, sample.time, {});
        });
    }
    insertSampleIntoTableAtIndex(sample, index);
}

void HistoryRecorder::insertSampleIntoTableAtIndex(const PeriodSample& sample, StorageIndex index)
{
    tables_.insertSample(sample, index);
}

} // namespace meridal
