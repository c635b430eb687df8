// SPDX-License-Identifier: Apache-2.0
#include "tests/collectors/RecordingCollector.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>

namespace meridal::test {
namespace {

constexpr double origin = 1'700'000'000.0; // a whole second, where virtual time begins

class StatCollectorClockTest : public testing::Test {
protected:
    double label() { return collector->sampleIndex().time; }

    FakeMachine machine;
    std::shared_ptr<RecordingCollector> collector = std::make_shared<RecordingCollector>(machine);
};

TEST_F(StatCollectorClockTest, TicksOnWholeSeconds)
{
    machine.runtime.advance(0.25);
    collector->startLogging();
    machine.runtime.advance(3);
    ASSERT_EQ(collector->turns.size(), 3U);
    for (std::size_t turn = 0; turn < 3; ++turn) {
        EXPECT_NEAR(collector->turns[turn].first, origin + 1 + static_cast<double>(turn), 1e-6);
        EXPECT_EQ(collector->turns[turn].second, static_cast<std::int64_t>(turn));
    }
    EXPECT_EQ(label(), origin + 3);
    EXPECT_EQ(collector->sampleIndex().sampleID, 4);
    EXPECT_EQ(collector->historyTurns, 3);
}

TEST_F(StatCollectorClockTest, FirstTurnIsNeverImmediate)
{
    machine.runtime.advance(0.95);
    collector->startLogging();
    machine.runtime.advance(1);
    EXPECT_TRUE(collector->turns.empty());
    machine.runtime.advance(0.06);
    EXPECT_EQ(collector->turns.size(), 1U);
}

TEST_F(StatCollectorClockTest, DeclinedTurnsCountButDoNotMeasure)
{
    StatCollectorDelegate indifferent;
    collector->addDelegate(indifferent);
    collector->startLogging();
    machine.runtime.advance(2.5);
    EXPECT_TRUE(collector->turns.empty());
    EXPECT_EQ(collector->updateSequence(), 2);
    EXPECT_EQ(collector->sampleIndex().sampleID, 1);
    EXPECT_EQ(collector->historyTurns, 2);
}

TEST_F(StatCollectorClockTest, OverloadDropsTurnsInsteadOfPilingThemUp)
{
    collector->during = [this] { machine.runtime.sleepMachine(2.4, true); };
    collector->startLogging();
    machine.runtime.advance(30);
    EXPECT_GE(collector->turns.size(), 7U);
    EXPECT_LE(collector->turns.size(), 10U);
}

RC_GTEST_PROP(StatCollectorClock, NoDisturbanceStopsItHastensItOrDoublesIt, ())
{
    FakeMachine machine;
    const auto collector = std::make_shared<RecordingCollector>(machine);
    collector->threaded = *rc::gen::arbitrary<bool>();
    collector->startLogging();
    for (int round = *rc::gen::inRange(1, 6); round > 0; --round) {
        const double seconds = *rc::gen::inRange(-500'000, 500'000) / 100.0;
        switch (*rc::gen::inRange(0, 5)) {
        case 0:
            machine.runtime.stepWallClock(seconds);
            break;
        case 1:
            machine.runtime.jump(std::abs(seconds));
            break;
        case 2:
        case 3:
            machine.runtime.sleepMachine(std::abs(seconds), *rc::gen::arbitrary<bool>());
            break;
        default:
            collector->startLogging();
            break;
        }
        collector->turns.clear();
        machine.runtime.advance(10);
        RC_ASSERT(collector->turns.size() >= 8U && collector->turns.size() <= 11U);
        RC_ASSERT(collector->sampleIndex().time == std::floor(machine.runtime.wallTime()));
    }
}

TEST_F(StatCollectorClockTest, StoppedClockEndsByItself)
{
    collector->startLogging();
    machine.runtime.advance(1.5);
    collector->setStopped(true);
    machine.runtime.advance(100);
    EXPECT_EQ(collector->turns.size(), 1U);
}

TEST_F(StatCollectorClockTest, DestroyedWhileScheduledOrMeasuringIsSafe)
{
    collector->startLogging();
    machine.runtime.advance(1.5);
    collector.reset();
    machine.runtime.advance(5);

    // Released by its owner while the global queue measures: it lives until that has ended, and dies on the main queue.
    collector = std::make_shared<RecordingCollector>(machine);
    const std::weak_ptr<RecordingCollector> watched = collector;
    bool measured = false;
    collector->threaded = true;
    collector->during = [&] {
        collector.reset();
        measured = !watched.expired();
    };
    collector->startLogging();
    machine.runtime.advance(2.5);
    EXPECT_TRUE(measured);
    EXPECT_TRUE(watched.expired());
}

TEST_F(StatCollectorClockTest, CleanupKeepsTheQueueForTheMeasurementInProgress)
{
    collector->threaded = true;
    bool hadQueue = false;
    collector->during = [&] {
        machine.runtime.mainQueue().runAndWait([&] { collector->cleanup(); });
        hadQueue = collector->queue() != nullptr;
    };
    collector->startLogging();
    machine.runtime.advance(5);
    EXPECT_TRUE(hadQueue);
    EXPECT_EQ(collector->queue(), nullptr);
    EXPECT_EQ(collector->turns.size(), 1U);
}

TEST_F(StatCollectorClockTest, StartedOverDuringAMeasurementItNeverMeasuresTwiceAtATime)
{
    collector->threaded = true;
    int under = 0;
    collector->during = [&] {
        EXPECT_EQ(++under, 1);
        if (collector->turns.size() == 1) {
            machine.runtime.mainQueue().runAndWait([&] { collector->startLogging(); });
            machine.runtime.advance(1.5); // a turn of the new clock falls due meanwhile
        }
        --under;
    };
    collector->startLogging();
    machine.runtime.advance(10);
    EXPECT_GE(collector->turns.size(), 8U);
    EXPECT_LE(collector->turns.size(), 10U);
}

TEST_F(StatCollectorClockTest, ThreadedNoticesComeBackToTheMainQueue)
{
    struct Watcher final : StatCollectorDelegate {
        explicit Watcher(Runtime& ofTest) : runtime(ofTest) { }
        std::optional<bool> collectorShouldUpdateStateForSequence(StatCollector&, std::int64_t) override
        {
            return runtime.mainQueue().isCurrent();
        }
        void collectorUpdatedForMode(StatCollector&, int) override
        {
            onMain += runtime.mainQueue().isCurrent() ? 1 : 0;
        }
        Runtime& runtime;
        int onMain = 0;
    } watcher(machine.runtime);
    collector->threaded = true;
    collector->addDelegate(watcher);
    bool measuredOnMain = true;
    collector->during = [&] {
        measuredOnMain = machine.runtime.mainQueue().isCurrent();
        collector->updaterFinishBlock()(*collector);
    };
    collector->startLogging();
    machine.runtime.advance(1.5);
    EXPECT_FALSE(measuredOnMain);
    EXPECT_EQ(watcher.onMain, 1);
}

} // namespace
} // namespace meridal::test
