// SPDX-License-Identifier: Apache-2.0
#include "history/StorageClock.h"

#include "history/HistoryReader.h"
#include "history/LongTermThinning.h"

#include <algorithm>
#include <cmath>

namespace meridal {

namespace {

/// A clock whose next turn is further away than this many of its intervals shows that the wall clock was set back.
constexpr double longestWaitIntervals = 2;

/// A long-term period is not started with less of it than this left, in seconds.
constexpr double shortestLongTermPeriod = 60;

/// The long-term store writes every missed period that is young enough for rows of five minutes: older ones would be
/// thinned at once, and a clock that starts in 1970 and is then set right must not keep the daemon busy with half a century.
constexpr double longestLongTermGap = longTermSteps[0].age;

} // namespace

StorageClock::StorageClock(StorageIndex index) : index_(index)
{
    record_.sampleID = 1;
    record_.interval = static_cast<double>(storageConstants[position(index)].interval);
}

void StorageClock::start(double now)
{
    startPeriod(now);
    record_.sampleID = 0;
}

void StorageClock::startPeriod(double now)
{
    if (index_ == StorageIndex::LongTerm) {
        record_.nextTime = std::ceil(now / record_.interval) * record_.interval;
        if (now + shortestLongTermPeriod > record_.nextTime) {
            record_.nextTime += record_.interval;
        }
    } else {
        record_.nextTime = std::ceil(now) + record_.interval;
    }
    record_.time = record_.nextTime - record_.interval;
}

void StorageClock::goOnFrom(const StoredStorage& stored, double now)
{
    record_.sampleID = static_cast<double>(stored.newestID);
    if (stored.newestTime > 0) {
        record_.time = stored.newestTime;
        record_.nextTime = record_.time + record_.interval;
    } else {
        startPeriod(now);
    }
    recordedUntil_ = stored.latestTime > stored.newestTime ? stored.latestTime + record_.interval : 0;
}

void StorageClock::followWallClock(double now)
{
    const double reach = longestWaitIntervals * record_.interval;
    if (record_.nextTime - now > reach) {
        recordedUntil_ = std::max(recordedUntil_, record_.nextTime);
        startPeriod(now);
        return;
    }
    const bool jumped = now - record_.nextTime > reach;
    if (recordedUntil_ == 0 || (now < recordedUntil_ && !jumped)) {
        return;
    }
    if (now < recordedUntil_) {
        startPeriod(now);
        return;
    }
    if (jumped) {
        record_.nextTime = recordedUntil_;
        record_.time = record_.nextTime - record_.interval;
    }
    recordedUntil_ = 0;
}

void StorageClock::skipOldPeriods(double now)
{
    const bool longTerm = index_ == StorageIndex::LongTerm;
    const double until = now - (longTerm ? longestLongTermGap : historyIntervals * record_.interval);
    if (record_.nextTime < until) {
        const double periods = std::ceil((until - record_.nextTime) / record_.interval);
        record_.sampleID += periods;
        record_.nextTime += periods * record_.interval;
        record_.time = record_.nextTime - record_.interval;
    }
}

void StorageClock::finishPeriod()
{
    record_.sampleID += 1;
    record_.time = record_.nextTime;
    record_.nextTime = record_.time + record_.interval;
}

} // namespace meridal
