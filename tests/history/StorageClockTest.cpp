// SPDX-License-Identifier: Apache-2.0
// The clocks of storages, on times that tests make up: starts, gaps, and wall clocks that step.

#include "history/StorageClock.h"

#include "history/HistoryReader.h"
#include "history/WallClockGuard.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>

namespace meridal::test {
namespace {

/// A clock that ends periods until `now` is within one.
int finishUntil(StorageClock& clock, double now)
{
    int periods = 0;
    for (; clock.record().nextTime <= now; ++periods) {
        clock.finishPeriod();
    }
    return periods;
}

RC_GTEST_PROP(StorageClock, AGapLeavesTheNewest603PeriodsAndEveryIdentifier, ())
{
    const auto index = static_cast<StorageIndex>(*rc::gen::inRange(1, 8));
    const double now = 1.7e9 + *rc::gen::inRange(0, 30'000) / 100.0;
    StorageClock clock(index);
    clock.start(now);
    const double interval = clock.record().interval;
    const double later = now + interval * *rc::gen::inRange(0, 90'000) / 100.0; // up to 900 periods
    StorageClock walked = clock;
    int kept = 0;
    while (walked.record().nextTime <= later) {
        walked.finishPeriod();
        kept += walked.record().time >= later - 602 * interval ? 1 : 0;
    }
    clock.skipOldPeriods(later);
    RC_ASSERT(finishUntil(clock, later) == kept);
    RC_ASSERT(clock.record().sampleID == walked.record().sampleID);
    RC_ASSERT(clock.record().time == walked.record().time);
    RC_ASSERT(clock.record().nextTime == walked.record().nextTime);
}

TEST(StorageClock, StartsAtIdentifierNoneOnAWholeSecondOrFiveMinutes)
{
    StorageClock daily(StorageIndex::Day);
    EXPECT_EQ(daily.record().nextTime, 0);
    daily.start(1000.5);
    EXPECT_EQ(daily.record().time, 1001);
    EXPECT_EQ(daily.record().nextTime, 1145);
    EXPECT_EQ(daily.record().sampleID, 0);
    for (const auto& [into, length] : {std::pair(10.0, 300.0), {240, 300}, {240.5, 600}, {0, 300}}) {
        StorageClock longTerm(StorageIndex::LongTerm);
        longTerm.start(30'000 + into);
        EXPECT_EQ(longTerm.record().nextTime, 30'000 + length) << into << " s into the five minutes";
    }
}

TEST(StorageClock, AClockSetRightAfterDecadesCostsABoundedFill)
{
    for (const auto& [index, periods] : {std::pair(StorageIndex::Hour, 602), {StorageIndex::LongTerm, 93 * 288}}) {
        StorageClock clock(index);
        clock.start(1000); // booted in 1970
        clock.skipOldPeriods(1.7e9);
        EXPECT_NEAR(finishUntil(clock, 1.7e9), periods, 1);
        EXPECT_GT(clock.record().nextTime, 1.7e9);
    }
}

/// One storage of six seconds that has reached 2007, and what becomes of its open period as the wall clock moves.
TEST(StorageClock, FollowsAWallClockThatStepsWithoutRecordingATimeTwice)
{
    struct Step {
        double now;
        double nextTime;
        const char* why;
    };
    StorageClock clock(StorageIndex::Hour);
    clock.start(2000.3);
    for (const Step& step : {Step{1995.5, 2007, "back by less than two intervals: waited for"},
             {1000.2, 1007, "back by more: starts over where the clock stands"},
             {1400, 1406, "ahead, but behind what is recorded: no gap"}, {1407, 1406, "in time"},
             {3000, 2007, "past it: the gap since what is recorded"}, {3000, 2007, "and that once"},
             {900, 906, "back again"}, {500, 506, "and further: 2007 stays recorded"}, {2100, 2007, "past it again"}}) {
        const double sampleID = clock.record().sampleID;
        clock.followWallClock(step.now);
        EXPECT_EQ(clock.record().nextTime, step.nextTime) << step.now << ": " << step.why;
        EXPECT_EQ(clock.record().time, step.nextTime - 6) << step.now << ": " << step.why;
        EXPECT_EQ(clock.record().sampleID, sampleID) << "identifiers go on";
    }
    // Walked past in its own time, what was recorded is no gap either.
    clock.followWallClock(1990.5);
    EXPECT_EQ(clock.record().nextTime, 1997);
    finishUntil(clock, 2008);
    clock.followWallClock(2008);
    EXPECT_EQ(clock.record().nextTime, 2009);
    clock.followWallClock(2100);
    EXPECT_EQ(clock.record().nextTime, 2009) << "from here on a gap is one";
}

TEST(StorageClock, GoesOnWhereItsRowsEnd)
{
    StoredStorage stored;
    stored.newestID = 41;
    stored.newestTime = 1000;
    stored.latestTime = 5000; // the clock was set back since
    StorageClock clock(StorageIndex::Hour);
    clock.goOnFrom(stored, 1300);
    EXPECT_EQ(clock.record().sampleID, 41);
    EXPECT_EQ(clock.record().nextTime, 1006);
    clock.followWallClock(1300);
    EXPECT_EQ(clock.record().nextTime, 1306) << "no gap behind what is recorded";
    clock.followWallClock(5900);
    EXPECT_EQ(clock.record().nextTime, 5006);
    stored.newestTime = 0; // no row has a time
    clock.goOnFrom(stored, 1300);
    EXPECT_EQ(clock.record().nextTime, 1306);
}

TEST(WallClockGuardTest, ABelievedLeapIsNotForgottenAtTheNextStart)
{
    const double right = 1'700'000'000;
    const double ahead = right + 11 * 365 * 86'400.0;
    const auto nobody = [] { return false; };
    WallClockGuard guard;
    guard.begin(ahead, 1000); // the run before recorded with a clock that was wrong, and this one has it still
    EXPECT_TRUE(guard.believes(ahead + 6, 1006, nobody));
    EXPECT_FALSE(guard.isSettled(4599));
    EXPECT_TRUE(guard.isSettled(4600));
    EXPECT_TRUE(guard.believes(right, 5000, nobody));
    EXPECT_TRUE(guard.believes(ahead + 4200, 5200, nobody)) << "back within minutes";
    EXPECT_TRUE(guard.believes(right + 300, 5300, nobody));
    EXPECT_TRUE(guard.believes(right + 600, 5600, nobody));
    EXPECT_FALSE(guard.believes(ahead + 5000, 6000, nobody)) << "put right, and wrong again";
    EXPECT_TRUE(guard.believes(ahead + 5300, 6300, nobody));
    EXPECT_FALSE(guard.isSettled(9899));
}

} // namespace
} // namespace meridal::test
