// SPDX-License-Identifier: Apache-2.0
#include "tests/support/VirtualRuntime.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace meridal {
namespace {

class VirtualRuntimeTest : public testing::Test {
protected:
    /// A timer that notes the moments at which it fires, in s after the start of the test.
    void startNotingTimer(double interval)
    {
        timer = runtime.startTimer(
            runtime.mainQueue(), {.first = interval, .interval = interval}, [this] { fires.push_back(elapsed()); });
    }
    double elapsed() const { return runtime.monotonicTime() - start; }

    VirtualRuntime runtime;
    const double start = runtime.monotonicTime();
    std::unique_ptr<Timer> timer;
    std::vector<double> fires;
};

TEST_F(VirtualRuntimeTest, RoundMomentsMadeOfTenthsAreReached)
{
    startNotingTimer(0.1);
    for (int second = 1; second <= 100; ++second) {
        runtime.advance(1);
        EXPECT_EQ(fires.size(), 10U * static_cast<unsigned>(second));
    }
}

TEST_F(VirtualRuntimeTest, WhatAJumpMissedRunsLateOnceAndKeepsItsRhythm)
{
    startNotingTimer(2);
    runtime.jump(7);
    EXPECT_EQ(fires, (std::vector<double>{7}));
    runtime.advance(3);
    EXPECT_EQ(fires, (std::vector<double>{7, 8, 10}));
}

TEST_F(VirtualRuntimeTest, SteppingTheWallClockMovesNoTimer)
{
    startNotingTimer(2);
    const double wall = runtime.wallTime();
    runtime.stepWallClock(-86'400);
    runtime.after(1, [&] { runtime.stepWallClock(1e-4); });
    runtime.advance(4.5);
    EXPECT_EQ(fires, (std::vector<double>{2, 4}));
    EXPECT_EQ(elapsed(), 4.5);
    EXPECT_NEAR(runtime.wallTime(), wall - 86'400 + 4.5 + 1e-4, 1e-6);
}

TEST_F(VirtualRuntimeTest, SleepMovesTheOtherClockOnlyWhereItCountsSleep)
{
    startNotingTimer(2);
    const double wall = runtime.wallTime();
    runtime.sleepMachine(3600);
    EXPECT_EQ(elapsed(), 0);
    EXPECT_EQ(runtime.wallTime(), wall + 3600);
    runtime.sleepMachine(5, true);
    EXPECT_EQ(elapsed(), 5);
    EXPECT_EQ(runtime.wallTime(), wall + 3605);
    EXPECT_TRUE(fires.empty()) << "a sleeping machine runs nothing";
    runtime.advance(1);
    EXPECT_EQ(fires, (std::vector<double>{5, 6}));
}

TEST_F(VirtualRuntimeTest, SlowTaskHoldsUpItsOwnQueueAlone)
{
    const auto slow = runtime.makeSerialQueue("slow");
    const auto other = runtime.makeSerialQueue("other");
    std::string order;
    slow->post([&] {
        slow->post([&] { order += 'c'; });
        const auto timerOfOther = runtime.startTimer(*other, {.first = 1, .interval = 1}, [&] { order += 'a'; });
        runtime.advance(3);
        order += 'b';
    });
    runtime.advance(1);
    EXPECT_EQ(order, "aaabc");
    EXPECT_EQ(elapsed(), 3) << "time never goes back";
}

} // namespace
} // namespace meridal
