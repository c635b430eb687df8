// SPDX-License-Identifier: Apache-2.0
#include "tests/process/ProcessFixture.h"
#include "wire/RequestKey.h"

#include <cmath>
#include <random>
#include <set>

namespace meridal {
namespace {

using test::absent;

class ProcessStatCollectorTest : public test::ProcessFixture { };

TEST_F(ProcessStatCollectorTest, FirstSightGivesNoRatesTheSecondPassDoes)
{
    set(42);
    pass(42, {.cpu = 900, .read = 1'000'000, .wakeups = 5000});
    EXPECT_THAT(figures(42), are({absent, absent, absent, absent}));
    pass(42, {.cpu = 3, .read = 4096, .written = 1000, .wakeups = 400});
    EXPECT_THAT(figures(42), are({150, 160, 2048, 500}))
        << "of one core; 3 s of CPU and 400 x 500 us in 2 s; the first bytes that it ever wrote";
}

TEST_F(ProcessStatCollectorTest, SteppedWallClockMovesLabelsNotRates)
{
    set(42);
    pass(42, {.read = 1});
    for (const double step : {-3600.0, 1e6, -1e9, 0.0}) {
        machine.runtime.stepWallClock(step);
        pass(42, {.cpu = 1, .read = 2000});
        EXPECT_THAT(figures(42), are({50, 50, 1000, 0}));
        EXPECT_DOUBLE_EQ(powerScore(42), 50) << "half a minute is not measured on the wall";
        EXPECT_EQ(item(42).activity().diskReadTime, machine.runtime.wallTime());
    }
}

TEST_F(ProcessStatCollectorTest, ReadingsCloserThanAFewTicksLeaveTheFigureAlone)
{
    source().resolution = 0.01;
    set(42);
    update();
    update(); // at the same moment
    EXPECT_THAT(figures(42), are({absent, absent, absent, absent}));
    pass(42, {.cpu = 1});
    ASSERT_THAT(figures(42), are({50, 50, 0, 0}));
    pass(42, {.cpu = 0.01, .read = 4000}, 0.001); // one tick; over a millisecond it would show as 1000 %
    EXPECT_THAT(figures(42), are({50, 50, 0, 0}));
    pass(42, {.cpu = 0.19}, 1.999);
    EXPECT_THAT(figures(42), are({10, 10, 2000, 0})) << "the tick is counted over the whole interval";
    EXPECT_DOUBLE_EQ(powerScore(42), 30) << "what was left alone is not remembered again";
}

TEST_F(ProcessStatCollectorTest, CountersThatGoBackStartOverAndAbsentOnesChangeNothing)
{
    set(42);
    pass(42, {.cpu = 50, .read = 1'000'000, .written = 1'000'000, .wakeups = 1000});
    set(42);
    pass(42, {.cpu = 1, .read = 10, .written = 10, .wakeups = 3});
    EXPECT_THAT(figures(42), are({absent, absent, absent, absent})) << "nobody knows, which is not that it rests";
    pass(42, {.cpu = 1, .read = 200});
    EXPECT_THAT(figures(42), are({50, 50, 100, 0}));
    row(42).present = ProcessFields::None;
    row(42).cpuTime = row(42).diskBytesRead = 0;
    updateAfter(2);
    EXPECT_THAT(figures(42), are({50, 50, 100, 0})) << "what is absent leaves them as they were";
}

TEST_F(ProcessStatCollectorTest, ReusedPidStartsAfresh)
{
    set({{1, 0, "launchd"}, {40, 1, "app"}, {42, 40, "helper"}});
    update();
    pass(42, {.cpu = 9});
    ASSERT_FALSE(item(42).root());
    const auto* before = &item(42);

    set(42, 1, "other");
    row(42).startIdentity = 205;
    pass(42, {.cpu = 30});
    EXPECT_EQ(&item(42), before);
    EXPECT_THAT(figures(42), are({absent, absent, absent, absent}));
    EXPECT_EQ(item(42).name(), "other");
    EXPECT_TRUE(item(42).root() && changes.childrenChanged);
    EXPECT_EQ(changes.newProcesses, 1u);
    pass(42, {.cpu = 1});
    EXPECT_DOUBLE_EQ(powerScore(42), 50) << "nothing of the process before";
}

TEST_F(ProcessStatCollectorTest, ZombiesAndTheDeadLeaveTheTableButNobodyWhenItCannotBeRead)
{
    set({{7, 1}, {8, 1}, {9, 1}});
    update();
    row(7).status = ProcessStatus::Zombie;
    source().remove(8);
    updateAfter(2);
    EXPECT_EQ(collector().processes(), std::vector{collector().processForPid(9)});
    EXPECT_EQ(collector().processForPid(7), nullptr);
    EXPECT_TRUE(changes.childrenChanged);
    const auto rows = std::exchange(source().rows, {});
    updateAfter(2);
    EXPECT_FALSE(changes.isRead || changes.childrenChanged);
    EXPECT_EQ(collector().processCount(), 1u);
    source().rows = rows;
    pass(9, {.cpu = 1});
    EXPECT_FALSE(changes.childrenChanged);
    EXPECT_THAT(figures(9), are({25, 25, 0, 0})) << "over both intervals";
}

TEST_F(ProcessStatCollectorTest, AsksForNoMoreThanItsMaskNeeds)
{
    using Fields = ProcessFields;
    set(7);
    const std::pair<std::uint32_t, Fields> masks[] = {{0, Fields::None}, {8, Fields::None}, {1, Fields::Cpu},
        {2, Fields::Cpu | Fields::Memory}, {4, Fields::Cpu | Fields::Disk}, {16, Fields::Cpu | Fields::Wakeups},
        {31, Fields::All}};
    for (const auto& [updateMask, wanted] : masks) {
        collector().setUpdateMask(updateMask);
        updateAfter(2);
        EXPECT_EQ(source().asked.back(), wanted) << updateMask;
    }
    source().free = Fields::Disk;
    collector().setUpdateMask(1);
    updateAfter(2);
    EXPECT_EQ(source().asked.back(), Fields::Cpu | Fields::Disk) << "and what costs nothing more";
}

TEST_F(ProcessStatCollectorTest, MemoryFollowsTheRelease)
{
    set(42);
    ProcessRecord& of = row(42);
    of.physFootprint = 5000;
    std::tie(of.anonymous, of.purgeableVolatile, of.compressed) = std::tuple(4000, 1000, 700);
    update();
    EXPECT_EQ(item(42).figures.memory, 5000);
    row(42).present = ProcessFields::Cpu;
    updateAfter(2);
    EXPECT_EQ(item(42).figures.memory, std::nullopt) << "asked for and not to be had";

    machine.machine().release = {10, 13, 6};
    row(42).present = ProcessFields::All;
    ProcessStatCollector older(machine.context);
    older.setUpdateMask(test::everyList);
    older.update();
    EXPECT_EQ(older.processForPid(42)->figures.memory, 3700);
    row(42).purgeableVolatile = 9000;
    older.update();
    EXPECT_EQ(older.processForPid(42)->figures.memory, 700) << "never below nothing";
}

TEST_F(ProcessStatCollectorTest, WhatIsWantedLateIsAFirstReadingAndAfterAPauseAMeanOverIt)
{
    collector().setUpdateMask(mask(RequestKey::Network));
    set(42);
    pass(42, {.cpu = 5000, .read = 5000});
    collector().setUpdateMask(test::everyList);
    updateAfter(2);
    EXPECT_THAT(figures(42), are({absent, absent, absent, absent})) << "not the work of its whole life";
    collector().setUpdateMask(mask(RequestKey::Cpu));
    pass(42, {.read = 1200});
    collector().setUpdateMask(test::everyList);
    updateAfter(10);
    EXPECT_THAT(figures(42), are({0, absent, 100, 0}));
}

TEST_F(ProcessStatCollectorTest, OnlyPassesWithWakeupsMakeScores)
{
    for (const bool free : {false, true}) {
        source().free = free ? ProcessFields::Wakeups : ProcessFields::None;
        set(42);
        row(42).startIdentity = free ? 2 : 1;
        collector().setUpdateMask(mask(RequestKey::Cpu));
        update();
        for (int round = 0; round < 3; ++round) {
            pass(42, {.cpu = 1, .wakeups = 4000});
        }
        collector().setUpdateMask(mask(RequestKey::Energy));
        pass(42, {.cpu = 1, .wakeups = 4000}, 0.05); // at once, as for a new request
        EXPECT_EQ(powerScore(42), free ? 150 : absent) << "not of CPU time alone, nor of the pause in one interval";
        pass(42, {.wakeups = 55}, 0.55);
        EXPECT_NEAR(figures(42)[1], (free ? 4055 : 55) * 0.05 / (free ? 0.6 : 0.55) + 100 / 0.6, 1e-9);
        pass(42, {.wakeups = 80});
        EXPECT_DOUBLE_EQ(figures(42)[1], 2);
    }
}

TEST_F(ProcessStatCollectorTest, OlderReleasesTakeCpuUnitsAsSecondsInTheScoreAndNoTimeBaseGivesNone)
{
    machine.machine().release = {10, 11, 6};
    set(42);
    update();
    source().base = 0;
    ProcessStatCollector blind(machine.context);
    blind.setUpdateMask(test::everyList);
    blind.update();
    pass(42, {.cpu = 3e-9});
    EXPECT_THAT(figures(42), are({3 / 1e9 / 2 * 100, 150, 0, 0}));
    blind.update();
    const ProcessStatCollectorItem& unseen = *blind.processForPid(42);
    EXPECT_FALSE(unseen.figures.cpu || unseen.activity().powerScore);
    EXPECT_EQ(unseen.activity().diskRead, 0);
}

TEST_F(ProcessStatCollectorTest, ScoreAveragesWhatCountsOfTheLastHalfMinute)
{
    set(42);
    update();
    for (const double power : {40.0, 0.5, 20.0}) { // 0.5 counts neither as a score nor as a row
        pass(42, {.cpu = power / 50});
    }
    EXPECT_NEAR(powerScore(42), 30, 1e-5);
    for (int rest = 0; rest < 14; ++rest) { // the 40 is then 32 s old
        updateAfter(2);
    }
    EXPECT_NEAR(powerScore(42), 20, 1e-5);
    updateAfter(2);
    updateAfter(2);
    EXPECT_EQ(powerScore(42), 0);

    machine.runtime.advance(1000);
    update();
    for (int quick = 0; quick < 40; ++quick) { // 30 rows at most, however close they are
        pass(42, {.cpu = quick < 5 ? 1 : 0.01}, 0.5);
    }
    EXPECT_NEAR(powerScore(42), 2, 1e-5);
}

TEST_F(ProcessStatCollectorTest, SurvivesThousandsThatComeAndGoAndReuse)
{
    std::mt19937 random(7); // NOLINT: the same story every time
    for (int pass = 0; pass < 30; ++pass) {
        source().rows.clear();
        std::set<std::int32_t> alive;
        for (std::int32_t pid = 1; pid <= 4000; ++pid) {
            if (random() % 4 == 0) {
                continue;
            }
            ProcessRecord record = test::FakeProcessSource::process(pid, static_cast<std::int32_t>(random() % 4000));
            record.startIdentity = random() % 3;
            record.cpuTime = random();
            record.diskBytesRead = random();
            record.physFootprint = 1;
            record.status = random() % 50 == 0 ? ProcessStatus::Zombie : ProcessStatus::Alive;
            if (record.status == ProcessStatus::Alive) {
                alive.insert(pid);
            }
            source().rows.push_back(record);
        }
        if (pass % 2) {
            std::reverse(source().rows.begin(), source().rows.end());
        }
        source().rows.push_back(source().rows.back()); // listed twice
        updateAfter(2);
        std::set<std::int32_t> known;
        for (const auto* each : collector().processes()) {
            known.insert(each->pid);
            for (const auto& figure : {each->figures.cpu, each->activity().powerScore, each->activity().diskRead}) {
                ASSERT_TRUE(!figure || (std::isfinite(*figure) && *figure >= 0));
            }
        }
        ASSERT_EQ(known, alive);
        ASSERT_EQ(collector().processCount(), alive.size());
        double total = 0;
        for (const auto& each : ranked(ProcessFigure::memory, {.grouped = true})) {
            total += *each.totals[0];
        }
        ASSERT_EQ(total, alive.size()) << "everybody is in one group";
    }
}

} // namespace
} // namespace meridal
