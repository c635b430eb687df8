// SPDX-License-Identifier: Apache-2.0
#include "base/TimerGrid.h"
#include "base/DeadlineTable.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <map>

namespace meridal {
namespace {

/// After what time, from the 1000th second and a part, a timer fires first.
double waitOnGrid(double part, double interval)
{
    const double now = 1000 + part;
    return firstFire(now, {.first = interval, .interval = interval, .onGrid = true}) - now;
}

TEST(TimerGrid, FirstFireIsTheNearestOfTheGrid)
{
    EXPECT_EQ(waitOnGrid(0, 2), 2);
    EXPECT_EQ(waitOnGrid(0.75, 2), 1.25);
    EXPECT_EQ(waitOnGrid(1.25, 2), 2.75) << "0.75 would be a pass right after another";
    EXPECT_EQ(waitOnGrid(1, 6), 5) << "the earlier of two";
    EXPECT_EQ(waitOnGrid(0.75, 1), 1.25) << "finer where the interval is";
    EXPECT_EQ(firstFire(1000.75, {.first = 2, .interval = 2}), 1002.75) << "not asked for";
    EXPECT_EQ(firstFire(1000, {.first = 0, .interval = 2, .onGrid = true}), 1002) << "this moment has passed";
    EXPECT_EQ(firstFire(1000, {.first = -1}), 1000);
}

RC_GTEST_PROP(TimerGrid, NoTimerIsHurriedOrKeptWaiting, ())
{
    const double interval = *rc::gen::inRange(1, 100'000) * 1e-3;
    const double wait = waitOnGrid(*rc::gen::inRange(0, 1'000'000'000) * 1e-3, interval);
    const double half = std::min(interval, 2.0) / 2;
    RC_ASSERT(wait >= interval - half - 1e-6 && wait <= interval + half + 1e-6);
}

RC_GTEST_PROP(TimerGrid, TimersOfWholeStepsShareAllWakeUpsWheneverTheyStarted, ())
{
    DeadlineTable table;
    std::map<DeadlineTable::Id, double> intervals;
    double now = 0;
    double next = 0; // wake-up
    int wakeUps = 0;
    for (const double interval : {2.0, 6.0, 30.0, 2.0, 60.0}) {
        now += *rc::gen::inRange(0, 100'000) * 1e-3;
        intervals[intervals.size()] = interval;
        table.add(intervals.size() - 1, firstFire(now, {.first = interval, .interval = interval, .onGrid = true}), 0);
    }
    for (const double end = now + 600; (next = *table.wakeTime()) < end; ++wakeUps) {
        now = std::max(now, next);
        for (const auto& [id, deadline] : table.takeDue(now)) {
            table.add(id, nextInRhythm(deadline, intervals[id], now), 0);
        }
    }
    RC_ASSERT(wakeUps <= 301);
}

} // namespace
} // namespace meridal
