#include "tests/process/ProcessFixture.h"

#include <cmath>
#include <random>
#include <set>

namespace meridal {
namespace {

class ProcessStatCollectorTest : public test::ProcessFixture { };

TEST_F(ProcessStatCollectorTest, FirstSightGivesNoRatesTheSecondPassDoes)
{
    ProcessRecord busy = process(42);
    busy.userTime = 900 * second;
    busy.diskBytesRead = 1'000'000;
    busy.idleWakeups = 5000;
    source().set(busy);
    update();
    EXPECT_EQ(item(42).cpu(), 0);
    EXPECT_EQ(item(42).power(), 0);
    EXPECT_EQ(item(42).diskRead(), 0);

    row(42).userTime += 2 * second;
    row(42).systemTime += 1 * second;
    row(42).diskBytesRead += 4096;
    row(42).idleWakeups += 400;
    updateAfter(2);
    EXPECT_DOUBLE_EQ(item(42).cpu(), 150) << "percent of one core";
    EXPECT_DOUBLE_EQ(item(42).diskRead(), 2048);
    EXPECT_DOUBLE_EQ(item(42).power(), 160) << "3 s of CPU and 400 x 500 us in 2 s";
    EXPECT_EQ(item(42).sequence(), 2u);
}

TEST_F(ProcessStatCollectorTest, TwoPassesAtOneMomentDivideByOneSecond)
{
    set(42);
    update();
    row(42).userTime += second / 2;
    row(42).diskBytesWritten = 500;
    update();
    EXPECT_DOUBLE_EQ(item(42).cpu(), 50);
    EXPECT_EQ(item(42).power(), 0);
    EXPECT_EQ(item(42).diskWrite(), 0);
}

TEST_F(ProcessStatCollectorTest, SteppedWallClockMovesLabelsNotRates)
{
    ProcessRecord steady = process(42);
    steady.diskBytesRead = 1;
    source().set(steady);
    update();
    for (const double step : {-3600.0, 1e6, -1e9, 0.0}) {
        machine.runtime.stepWallClock(step);
        row(42).userTime += second;
        row(42).diskBytesRead += 2000;
        updateAfter(2);
        EXPECT_DOUBLE_EQ(item(42).cpu(), 50);
        EXPECT_DOUBLE_EQ(item(42).power(), 50);
        EXPECT_DOUBLE_EQ(item(42).powerScore(), 50) << "half a minute is not measured on the wall";
        EXPECT_DOUBLE_EQ(item(42).diskRead(), 1000);
        EXPECT_EQ(item(42).updateTime(), machine.runtime.wallTime());
        EXPECT_EQ(item(42).diskReadTime(), machine.runtime.wallTime());
    }
}

TEST_F(ProcessStatCollectorTest, ReadingsCloserThanAFewTicksLeaveTheFigureAlone)
{
    source().resolution = 0.01;
    set(42);
    update();
    row(42).userTime += second;
    updateAfter(2);
    ASSERT_DOUBLE_EQ(item(42).cpu(), 50);

    row(42).userTime += second / 100; // one tick; over a millisecond it would show as 1000 %
    updateAfter(0.001);
    EXPECT_DOUBLE_EQ(item(42).cpu(), 50);
    EXPECT_DOUBLE_EQ(item(42).power(), 50);
    EXPECT_EQ(item(42).powerHistory(2).empty, 1) << "and no row repeats it";

    row(42).userTime += second / 100 * 19;
    updateAfter(1.999);
    EXPECT_DOUBLE_EQ(item(42).cpu(), 10) << "the tick is counted over the whole interval";
}

TEST_F(ProcessStatCollectorTest, CountersThatGoBackStartOver)
{
    ProcessRecord record = process(42);
    record.userTime = 50 * second;
    record.diskBytesRead = record.diskBytesWritten = 1'000'000;
    record.idleWakeups = 1000;
    source().set(record);
    update();
    record.userTime = second;
    record.diskBytesRead = record.diskBytesWritten = 10;
    record.idleWakeups = 3;
    source().set(record);
    updateAfter(2);
    EXPECT_EQ(item(42).cpu(), 0);
    EXPECT_EQ(item(42).power(), 0);
    EXPECT_EQ(item(42).diskRead(), 0);
    EXPECT_EQ(item(42).diskWrite(), 0);

    row(42).userTime += second;
    row(42).diskBytesRead += 200;
    updateAfter(2);
    EXPECT_DOUBLE_EQ(item(42).cpu(), 50);
    EXPECT_DOUBLE_EQ(item(42).diskRead(), 100);
}

TEST_F(ProcessStatCollectorTest, ReusedPidStartsAfresh)
{
    set(1, 0, "launchd");
    set(40, 1, "app");
    ProcessRecord first = process(42, 40, "helper");
    first.userTime = 9 * second;
    source().set(first);
    update();
    updateAfter(2);
    ASSERT_FALSE(item(42).root());
    const auto* before = &item(42);

    ProcessRecord second_ = process(42, 1, "other");
    second_.startIdentity = 205;
    second_.userTime = 30 * second;
    source().set(second_);
    updateAfter(2);
    EXPECT_EQ(&item(42), before);
    EXPECT_EQ(item(42).cpu(), 0);
    EXPECT_EQ(item(42).sequence(), 1u);
    EXPECT_EQ(item(42).name(), "other");
    EXPECT_EQ(item(42).history(1).updateTime, 0) << "no row of the process before";
    EXPECT_TRUE(item(42).root());
    EXPECT_TRUE(collector().childrenChanged());
    EXPECT_EQ(collector().newProcesses(), 1u);
}

TEST_F(ProcessStatCollectorTest, ZombiesAndTheDeadLeaveTheTable)
{
    set(7);
    set(8);
    set(9);
    update();
    row(7).status = ProcessStatus::Zombie;
    source().remove(8);
    updateAfter(2);
    ASSERT_EQ(collector().processCount(), 1u);
    EXPECT_EQ(collector().processForPid(7), nullptr);
    EXPECT_EQ(collector().hierachy(), collector().processes());
    EXPECT_TRUE(collector().childrenChanged());
    updateAfter(2);
    EXPECT_FALSE(collector().childrenChanged());
}

TEST_F(ProcessStatCollectorTest, UnreadableTableChangesNothing)
{
    set(7);
    update();
    const auto rows = std::exchange(source().rows, {});
    updateAfter(2);
    EXPECT_EQ(collector().processCount(), 1u);
    source().rows = rows;
    row(7).userTime += second;
    updateAfter(2);
    EXPECT_DOUBLE_EQ(item(7).cpu(), 25);
}

TEST_F(ProcessStatCollectorTest, AsksForNoMoreThanItsMaskNeeds)
{
    set(7);
    const auto askedFor = [&](std::uint32_t updateMask) {
        collector().setUpdateMask(updateMask);
        updateAfter(2);
        return source().asked.back();
    };
    EXPECT_EQ(askedFor(0), ProcessFields::None);
    EXPECT_EQ(askedFor(8), ProcessFields::None);
    EXPECT_EQ(askedFor(1), ProcessFields::Cpu);
    EXPECT_EQ(askedFor(2), ProcessFields::Cpu | ProcessFields::Memory);
    EXPECT_EQ(askedFor(4), ProcessFields::Cpu | ProcessFields::Disk);
    EXPECT_EQ(askedFor(16), ProcessFields::Cpu | ProcessFields::Wakeups);
    EXPECT_EQ(askedFor(31), ProcessFields::All);

    const auto passes = source().asked.size();
    collector().setRequireUpdateMask(true);
    collector().setUpdateMask(0);
    update();
    collector().setUpdateMask(31);
    collector().disable();
    update();
    EXPECT_EQ(source().asked.size(), passes);
}

TEST_F(ProcessStatCollectorTest, CpuWantedLateIsAFirstReading)
{
    collector().setUpdateMask(mask(ProcessList::Network));
    ProcessRecord record = process(42);
    record.userTime = 5000 * second;
    source().set(record);
    update();
    updateAfter(2);
    collector().setUpdateMask(test::everyList);
    updateAfter(2);
    EXPECT_EQ(item(42).cpu(), 0) << "not the work of its whole life";
}

TEST_F(ProcessStatCollectorTest, MemoryFollowsTheRelease)
{
    ProcessRecord record = process(42);
    record.physFootprint = 5000;
    record.anonymous = 4000;
    record.purgeableVolatile = 1000;
    record.compressed = 700;
    source().set(record);
    update();
    EXPECT_EQ(item(42).memory(), 5000);
    row(42).present = ProcessFields::Cpu;
    updateAfter(2);
    EXPECT_EQ(item(42).memory(), 0) << "asked for and not to be had";

    machine.machine().release = {10, 13, 6};
    row(42).present = ProcessFields::All;
    ProcessStatCollector older(machine.context);
    older.setUpdateMask(test::everyList);
    older.update();
    EXPECT_EQ(older.processForPid(42)->memory(), 3700);
    row(42).purgeableVolatile = 9000;
    older.update();
    EXPECT_EQ(older.processForPid(42)->memory(), 700) << "never below nothing";
}

TEST_F(ProcessStatCollectorTest, AbsentGroupsLeaveFiguresAsTheyWere)
{
    ProcessRecord record = process(42);
    record.diskBytesRead = 100;
    source().set(record);
    update();
    row(42).userTime = second;
    row(42).diskBytesRead = 300;
    updateAfter(2);
    row(42).present = ProcessFields::None;
    row(42).userTime = 0;
    row(42).diskBytesRead = 0;
    updateAfter(2);
    EXPECT_DOUBLE_EQ(item(42).cpu(), 50);
    EXPECT_DOUBLE_EQ(item(42).diskRead(), 100);
    EXPECT_EQ(item(42).sequence(), 3u);
}

TEST_F(ProcessStatCollectorTest, DiskRateAfterAPauseIsTheMeanOverIt)
{
    ProcessRecord record = process(42);
    record.diskBytesRead = 100;
    source().set(record);
    update();
    collector().setUpdateMask(mask(ProcessList::Cpu));
    row(42).diskBytesRead = 1300;
    updateAfter(2);
    EXPECT_EQ(item(42).diskRead(), 0);
    collector().setUpdateMask(test::everyList);
    updateAfter(10);
    EXPECT_DOUBLE_EQ(item(42).diskRead(), 100);
    collector().clearDiskActivity();
    EXPECT_EQ(item(42).diskRead(), 0);
}

TEST_F(ProcessStatCollectorTest, WakeupsOfAPauseAreNotPutIntoOneInterval)
{
    set(42);
    update();
    collector().setUpdateMask(mask(ProcessList::Cpu));
    for (int pass = 0; pass < 3; ++pass) {
        row(42).idleWakeups += 10'000;
        row(42).userTime += second;
        updateAfter(2);
        EXPECT_DOUBLE_EQ(item(42).power(), 50) << "CPU alone";
    }
    collector().setUpdateMask(mask(ProcessList::Energy));
    updateAfter(2);
    EXPECT_EQ(item(42).power(), 0);
    row(42).idleWakeups += 40;
    updateAfter(2);
    EXPECT_DOUBLE_EQ(item(42).power(), 1);
}

TEST_F(ProcessStatCollectorTest, OlderReleasesTakeCpuUnitsAsSecondsInTheScore)
{
    machine.machine().release = {10, 11, 6};
    set(42);
    update();
    row(42).userTime += 3;
    updateAfter(2);
    EXPECT_DOUBLE_EQ(item(42).power(), 150);
    EXPECT_DOUBLE_EQ(item(42).cpu(), 3 / 1e9 / 2 * 100);
}

TEST_F(ProcessStatCollectorTest, ScoreAveragesWhatCountsOfTheLastHalfMinute)
{
    set(42);
    update();
    const auto pass = [&](double power) {
        row(42).userTime += static_cast<std::uint64_t>(power * 2e7);
        updateAfter(2);
    };
    pass(40);
    pass(0.5); // counts neither as a score nor as a row
    pass(20);
    EXPECT_NEAR(item(42).powerScore(), 30, 1e-5);
    for (int rest = 0; rest < 14; ++rest) { // the 40 is then 32 s old
        pass(0);
    }
    EXPECT_NEAR(item(42).powerScore(), 20, 1e-5);
    pass(0);
    pass(0);
    EXPECT_EQ(item(42).powerScore(), 0);

    machine.runtime.advance(1000);
    update();
    for (int quick = 0; quick < 40; ++quick) { // 30 rows at most, however close they are
        row(42).userTime += second / 100 * (quick < 5 ? 100 : 1);
        updateAfter(0.5);
    }
    EXPECT_NEAR(item(42).powerScore(), 2, 1e-5);
}

TEST_F(ProcessStatCollectorTest, HistoryKeepsThreeHundredPassesNewestFirst)
{
    set(42);
    update();
    for (std::uint64_t pass = 1; pass <= 400; ++pass) {
        row(42).userTime += pass * second / 100;
        row(42).physFootprint = pass * 4096;
        updateAfter(1);
    }
    EXPECT_FLOAT_EQ(static_cast<float>(item(42).history(0).cpu), 400);
    EXPECT_EQ(item(42).history(299).memory, 101 * 4096);
    EXPECT_EQ(item(42).history(299).updateTime, machine.runtime.wallTime() - 299);
    EXPECT_FLOAT_EQ(static_cast<float>(item(42).powerHistory(299).power), 101);
    EXPECT_EQ(item(42).history(300).updateTime, 0);
    EXPECT_EQ(item(42).powerHistory(300).empty, 1);
}

TEST_F(ProcessStatCollectorTest, HostWithoutATimeBaseGivesNoCpuFigure)
{
    source().base = 0;
    set(42);
    update();
    row(42).userTime += second;
    updateAfter(2);
    EXPECT_EQ(item(42).cpu(), 0);
    EXPECT_EQ(item(42).power(), 0);
}

TEST_F(ProcessStatCollectorTest, TellsItsDelegatesAfterEveryPass)
{
    struct Delegate final : StatCollectorDelegate {
        void collectorUpdatedForMode(StatCollector&, int mode) override { modes.push_back(mode); }
        std::vector<int> modes;
    } delegate;
    set(42);
    collector().addDelegate(delegate);
    update();
    update();
    collector().disable();
    update();
    EXPECT_EQ(delegate.modes, std::vector<int>({0, 0}));
    collector().removeDelegate(delegate);
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
            ProcessRecord record = process(pid, static_cast<std::int32_t>(random() % 4000));
            record.startIdentity = random() % 3;
            record.userTime = random();
            record.diskBytesRead = random();
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
            known.insert(each->pid());
            ASSERT_TRUE(std::isfinite(each->cpu()) && each->cpu() >= 0);
            ASSERT_TRUE(std::isfinite(each->power()) && each->diskRead() >= 0);
        }
        ASSERT_EQ(known, alive);
        ASSERT_EQ(collector().processCount(), alive.size());
        double total = 0;
        for (const auto* head : collector().hierachy()) {
            for (const auto* member = head; member; member = member->nextInGroup(*head)) {
                ++total;
            }
        }
        ASSERT_EQ(total, static_cast<double>(alive.size())) << "everybody is in one group";
    }
}

TEST_F(ProcessStatCollectorTest, CountsPacketsByPidAndByPorts)
{
    set(7);
    set(8);
    update();
    collector().processCachePacket({.pid = 8, .downloadBytes = 100});
    collector().processCachePacket({.pid = 99, .downloadBytes = 100});
    EXPECT_EQ(item(8).networkDownload(), 100);
    EXPECT_EQ(item(8).networkDownloadTime(), machine.runtime.wallTime());
    EXPECT_EQ(item(8).networkUploadTime(), 0);

    collector().processForPid(7)->setConnections({{.localPort = 5000, .foreignPort = 443}});
    EXPECT_EQ(
        collector().processPacket({.localPort = 5000, .foreignPort = 443, .downloadBytes = 9, .uploadBytes = 2}), 7);
    EXPECT_EQ(collector().processPacket({.localPort = 443, .foreignPort = 5000, .downloadBytes = 30}), 7);
    EXPECT_EQ(collector().processPacket({.localPort = 1, .foreignPort = 2, .downloadBytes = 1}), 0);
    EXPECT_EQ(item(7).networkDownload(), 9);
    EXPECT_EQ(item(7).networkUpload(), 32);

    collector().clearBandwidth();
    EXPECT_EQ(item(7).networkUpload() + item(8).networkDownload(), 0);
}

} // namespace
} // namespace meridal
