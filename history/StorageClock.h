// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "history/SampleRecords.h"

namespace meridal {

struct StoredStorage;

/// The clock of one storage: which period is open, under which identifier, and what a wall clock that stands, steps or
/// sleeps makes of that. Knows the time only as it is told, in seconds since 1970.
class StorageClock {
public:
    explicit StorageClock(StorageIndex index);

    const sampleindexconfig& record() const { return record_; }
    /// Begins at identifier 0. Long-term periods end on five minutes and are never started with less than one to run.
    void start(double now);
    /// Goes on where the rows of the storage end.
    void goOnFrom(const StoredStorage& stored, double now);
    /// What a wall clock that steps does to the storage. Identifiers always go on. Set back, times start over where the
    /// clock now stands; what was recorded before stays, and is not recorded again as a gap while the clock is behind it.
    /// Once the clock is past it, the times go on from there: a machine that starts in 1970 and is put right a minute
    /// later misses what it missed since its last sample, not half a century.
    void followWallClock(double now);
    /// Passes over the missed periods that no table would keep.
    void skipOldPeriods(double now);
    /// The open period is over; the next one is open.
    void finishPeriod();

private:
    void startPeriod(double now);

    StorageIndex index_;
    sampleindexconfig record_;
    /// Where the next period after the recorded ones ends, while the wall clock stands behind them; else 0.
    double recordedUntil_ = 0;
};

} // namespace meridal
