// SPDX-License-Identifier: Apache-2.0
// What applications used, through every table and every trouble: whatever happens, the sums of each table are those of what
// was given.

#include "tests/applications/ApplicationFixture.h"
#include "tests/database/FaultyVfs.h"
#include "tests/support/SlowBuild.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <random>

namespace meridal::test {
namespace {

class ApplicationRecorderTest : public ApplicationTest {
protected:
    /// A little of what a day brings; the random one decides.
    void liveThroughSomething(std::mt19937& random)
    {
        const auto seconds = [&random](
                                 int most) { return static_cast<double>(random() % static_cast<unsigned>(most)); };
        pass(600 + seconds(3600), 30, [&] {
            for (int times = 0; times < 10; ++times) { // some often, most seldom
                const auto number = 80 / (1 + random() % 80);
                use(fmt::format("exe:/usr/bin/tool-{}", number), 0.001 * static_cast<double>(random() % 30'000));
            }
        });
        switch (random() % 6) {
        case 0:
            totals_.fold(fmt::format("exe:/usr/bin/tool-{}", 80 / (1 + random() % 80)));
            break;
        case 1:
            record(); // while the clock is looked into nothing is taken up
            restart();
            break;
        case 2:
            machine_.runtime.sleepMachine(seconds(40'000));
            break;
        case 3:
            machine_.runtime.stepWallClock(seconds(400) - 200);
            break;
        case 4:
            machine_.runtime.stepWallClock(-seconds(3 * 3600));
            break;
        default:
            machine_.runtime.stepWallClock(seconds(20 * 3600));
        }
    }
    std::string starts(RecordStep step)
    {
        return value(
            fmt::format("SELECT group_concat(start) FROM (SELECT DISTINCT start FROM {})", traitsOf(step).table));
    }
};

TEST_F(ApplicationRecorderTest, EveryTableHoldsAllThatWasGiven)
{
    for (unsigned seed = 1; seed <= (slowBuild ? 1 : 4); ++seed) {
        std::mt19937 random(seed);
        stopDaemon(false);
        std::filesystem::remove(file());
        given_ = 0;
        startDaemon();
        for (int times = 0; times < (slowBuild ? 6 : 30); ++times) {
            liveThroughSomething(random);
        }
        record();
        ASSERT_GT(given_, 0);
        expectClosed(given_);
        EXPECT_EQ(
            value("SELECT count(*) FROM application_minutes WHERE min(cpuuser, cpusystem, seconds, memory) < 0"), "0");
    }
    // A finished hour has the thirty largest by CPU time, "other" and the kernel.
    EXPECT_LE(
        std::stoi(value("SELECT max(n) FROM (SELECT count(*) AS n FROM application_minutes GROUP BY start)")), 32);
}

TEST_F(ApplicationRecorderTest, WhatIsSmallInEachMinuteIsRightInTheHour)
{
    totals_.group("unit:small.service").now.residentBytes = 1'000'000;
    for (int minute = 0; minute < 61; ++minute) {
        use("unit:small.service", 0.5);
        for (int other = 0; other < 40; ++other) { // that run for one minute each, and are larger
            use(fmt::format("exe:/{}/{}", minute, other), 1 + 0.001 * other);
        }
        pass(60);
        totals_.group("unit:small.service").now.residentBytes += 1'000'000;
    }
    const auto small = [this](const char* what, RecordStep step) {
        return value(fmt::format("SELECT {} FROM {}_named WHERE name = 'unit:small.service' ORDER BY start LIMIT 1",
            what, traitsOf(step).table));
    };
    EXPECT_EQ(small("cpuuser", RecordStep::Hour), "30000");
    EXPECT_EQ(small("seconds", RecordStep::Hour), "3600");
    EXPECT_EQ(small("memorypeak", RecordStep::Hour), "60000000");
    EXPECT_EQ(small("memory", RecordStep::Hour), "30500000");
    EXPECT_EQ(small("owner", RecordStep::Hour), "1000");
    expectClosed(given_);
    // It was among the largest by memory all the time; by that alone it would have been in "other".
    EXPECT_EQ(value("SELECT count(*) FROM application_minutes WHERE start < 1700010000 GROUP BY start LIMIT 1"), "33");
}

TEST_F(ApplicationRecorderTest, AFoldedGroupCountsOnce)
{
    use("exe:/bin/once", 100);
    use("exe:/bin/stays", 1);
    pass(60);
    use("exe:/bin/once", 7); // after the last pass that saw it
    totals_.fold("exe:/bin/once");
    pass(60);
    use("exe:/bin/once", 3); // again, from 0
    pass(120);
    expectClosed(111'000);
    EXPECT_EQ(value("SELECT sum(cpuuser) FROM application_minutes_named WHERE name = 'exe:/bin/once'"), "103000");
    EXPECT_EQ(value("SELECT sum(cpuuser) FROM application_minutes_named WHERE name = 'other'"), "7000");
}

TEST_F(ApplicationRecorderTest, AKillLosesHalfAMinuteAtMost)
{
    std::mt19937 random(3);
    std::int64_t lost = 0;
    for (int round = 0; round < (slowBuild ? 5 : 40); ++round) {
        pass(10 * static_cast<double>(1 + random() % 300), 10,
            [&] { use(fmt::format("exe:/bin/{}", random() % 50), 1); });
        restart(true);
        const std::int64_t kept = sumOf(RecordStep::Minute);
        ASSERT_LE(given_ - lost - kept, 4000) << round; // a second of CPU time every 10 s
        lost = given_ - kept;
        pass(10);
        expectClosed(kept);
    }
}

TEST_F(ApplicationRecorderTest, AProcessThatIsKilledLeavesSumsThatClose)
{
    stopDaemon(false);
    std::int64_t before = 0;
    std::mt19937 random(5);
    for (int round = 0; round < (slowBuild ? 5 : 40); ++round) {
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            startDaemon();
            for (;;) {
                pass(30, 10, [&] { use("exe:/bin/busy", 1); });
                if (::write(ends[1], "c", 1) != 1) {
                    std::_Exit(1);
                }
            }
        }
        ::close(ends[1]);
        std::int64_t heard = 0;
        char byte = 0;
        for (const auto wanted = static_cast<std::int64_t>(1 + random() % 100); heard < wanted; ++heard) {
            ASSERT_EQ(::read(ends[0], &byte, 1), 1);
        }
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        while (::read(ends[0], &byte, 1) == 1) {
            ++heard;
        }
        ::close(ends[0]);
        machine_.runtime.advance(30 * static_cast<double>(heard));
        startDaemon();
        const std::int64_t kept = sumOf(RecordStep::Minute);
        EXPECT_GE(kept - before, (heard - 2) * 3000);
        EXPECT_EQ(OtherProgram(file()).value("PRAGMA integrity_check"), "ok");
        pass(20);
        expectClosed(kept);
        before = kept;
        stopDaemon(false);
    }
}

TEST_F(ApplicationRecorderTest, AClockThatIsWrongForAMomentMovesNothing)
{
    pass(3600, 30, [&] { use("exe:/bin/a", 1); });
    machine_.runtime.stepWallClock(400 * day);
    pass(180, 30, [&] { use("exe:/bin/a", 1); });
    machine_.runtime.stepWallClock(-400 * day);
    pass(60, 30, [&] { use("exe:/bin/a", 1); });
    const double end = now();
    EXPECT_LT(std::stod(value("SELECT max(start) FROM application_minutes")), end);
    EXPECT_EQ(value("SELECT max(seconds) FROM application_minutes"), "210"); // the doubt, in one piece
    expectClosed(given_);
    machine_.runtime.stepWallClock(400 * day); // one that stays there is believed, and so is one that comes back
    pass(3600, 30, [&] { use("exe:/bin/a", 1); });
    EXPECT_GT(std::stod(value("SELECT max(start) FROM application_minutes")), end + 399 * day);
    machine_.runtime.stepWallClock(-400 * day);
    pass(7200, 30, [&] { use("exe:/bin/a", 1); });
    restart();
    pass(3600, 30, [&] { use("exe:/bin/a", 1); });
    expectClosed(given_);
    EXPECT_EQ(
        value(fmt::format("SELECT count(*) FROM application_hours WHERE start > {}", end + day)), "6"); // 2 of 3 each
}

TEST_F(ApplicationRecorderTest, DaysAreThoseOfTheWallAlsoWhereTheClockIsSet)
{
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    ::tzset();
    const double midnight = 1'698'444'000; // 2023-10-28 00:00 CEST; the 29th has 25 hours
    machine_.runtime.stepWallClock(midnight - now());
    record();
    pass(4 * day + 2 * hour, 600, [&] { use("exe:/bin/a", 1); });
    EXPECT_EQ(starts(RecordStep::Day), "1698444000,1698530400,1698620400,1698706800,1698793200");
    EXPECT_EQ(starts(RecordStep::Month), "1696111200,1698793200");
    EXPECT_EQ(value("SELECT group_concat(cpuuser / 1000) FROM application_days_named WHERE name = 'exe:/bin/a'"),
        "144,150,144,144,6");
    // Totals of all quarters, out of whole days where those are of this zone's and of quarters where they are not.
    for (const char* zone : {"CET-1CEST,M3.5.0,M10.5.0/3", "IST-5:30", "EST5"}) {
        ::setenv("TZ", zone, 1);
        ::tzset();
        GroupSums sums;
        for (const RecordedGroup& group :
            totals({.from = midnight, .until = now(), .step = RecordStep::Quarter, .whose = {}, .after = {}}).groups) {
            sums += group.sums;
        }
        EXPECT_NEAR(sums.cpuSeconds(), static_cast<double>(given_) / 1000, 1e-6) << zone;
    }
    ::unsetenv("TZ");
    ::tzset();
}

TEST_F(ApplicationRecorderTest, AFullDiskLosesNothing)
{
    FaultyVfs disk("full of applications");
    stopDaemon(false);
    startDaemon({.vfs = "full of applications"});
    pass(600, 10, [&] { use("exe:/bin/a", 1); });
    disk.failEvery(1, SQLITE_FULL);
    pass(7200, 10, [&] { use("exe:/bin/b", 1); });
    EXPECT_GT(databases_->statistics().begin()->second.batchesFailed, 0U);
    disk.failEvery(0);
    pass(60);
    expectClosed(given_);
    stopDaemon(false); // before the disk goes
}

TEST_F(ApplicationRecorderTest, ADamagedFileIsSetAsideAndItsRowsComeOver)
{
    pass(2 * hour, 30, [&] {
        for (int number = 0; number < 20; ++number) {
            use(fmt::format("exe:/bin/{}", number), 0.5);
        }
    });
    stopDaemon(false);
    const auto size = std::filesystem::file_size(file());
    {
        std::fstream content(file(), std::ios::in | std::ios::out | std::ios::binary);
        content.seekp(static_cast<std::streamoff>(size / 2 / 4096 * 4096));
        content << std::string(4096, '\xa5');
    }
    startDaemon();
    pass(3600, 30, [&] { use("exe:/bin/after", 1); });
    EXPECT_EQ(OtherProgram(file()).value("PRAGMA integrity_check"), "ok");
    EXPECT_EQ(value("SELECT sum(cpuuser) FROM application_hours_named WHERE name = 'exe:/bin/after'"), "120000");
    EXPECT_GT(sumOf(RecordStep::Minute), given_ / 2); // the page that was hit is gone, the rest is not
    const auto damaged = [&] {
        for (const auto& entry : std::filesystem::directory_iterator(folder_.root())) {
            if (entry.path().string().find(".damaged-") != std::string::npos) {
                return true;
            }
        }
        return false;
    };
    EXPECT_TRUE(damaged());
}

TEST_F(ApplicationRecorderTest, TablesForgetAndKeepWhatTheyShould)
{
    machine_.clockSource().synchronised = true;
    int number = 0;
    pass(day, 3600, [&] {
        for (int times = 0; times < 3; ++times) {
            use(fmt::format("exe:/tmp/{}", ++number), 1);
        }
    });
    for (; number > 0; --number) {
        totals_.fold(fmt::format("exe:/tmp/{}", number));
    }
    pass((slowBuild ? 16 : 110) * day, 3600, [&] { use("exe:/bin/a", 2); });
    const double end = now();
    for (const auto& [step, kept] : {std::pair(RecordStep::Minute, 2 * day), {RecordStep::Quarter, 14 * day}}) {
        const double oldest = std::stod(value(fmt::format("SELECT min(start) FROM {}", traitsOf(step).table)));
        EXPECT_NEAR(oldest, end - kept, 2 * hour) << traitsOf(step).name;
    }
    if (!slowBuild) {
        EXPECT_NEAR(std::stod(value("SELECT min(start) FROM application_hours")), end - 100 * day, 2 * hour);
        EXPECT_LT(std::stoi(value("SELECT count(*) FROM application_map")), 40) << "of the 72 of one day";
    }
    EXPECT_EQ(sumOf(RecordStep::Day), given_);
    EXPECT_EQ(sumOf(RecordStep::Month), given_);
    // A clock that nobody keeps and that stands years ahead for hours takes nothing but what is too much anyway.
    machine_.clockSource().synchronised = false;
    machine_.runtime.stepWallClock(2000 * day);
    pass(4 * hour, 60, [&] { use("exe:/bin/a", 2); });
    EXPECT_EQ(sumOf(RecordStep::Day), given_);
    EXPECT_GT(std::stoi(value(fmt::format("SELECT count(*) FROM application_minutes WHERE start < {}", end))), 40);
}

} // namespace
} // namespace meridal::test
