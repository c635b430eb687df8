// SPDX-License-Identifier: Apache-2.0
#include "tests/database/DatabaseFixture.h"
#include "tests/database/FaultyVfs.h"
#include "tests/uptime/UptimeFixture.h"

#include <cmath>

namespace meridal::test {
namespace {

TEST_F(UptimeTest, ABootIsOneRowHoweverOftenTheDaemonStarts)
{
    startDaemon();
    runtime().advance(100);
    startDaemon();
    const double started = *machine.machine().boot;
    EXPECT_EQ(daemon->collector.boottime(), started);
    EXPECT_EQ(
        rows("select boot, shutdown from uptime"), (std::vector<Dictionary>{{{"boot", started}, {"shutdown", 0.0}}}));
    for (const char* file : {"uptime-history.db", "uptime-history-long.db"}) {
        EXPECT_EQ(rows("select * from boottimes", file), (std::vector<Dictionary>{{{"time", started}}}));
    }
    EXPECT_TRUE(daemon->collector.config()["xmlNoSamples"]);
    EXPECT_EQ(rows("select sql from sqlite_master where name in ('uptime', 'sleep') order by name"),
        (std::vector<Dictionary>{
            {{"sql", "CREATE TABLE sleep (start double NOT NULL DEFAULT 0, end double NOT NULL DEFAULT 0)"}},
            {{"sql", "CREATE TABLE uptime (boot double NOT NULL DEFAULT 0, shutdown double NOT NULL DEFAULT 0)"}}}))
        << "as readers expect them";

    const double end = now();
    shutDown();
    bootAgain(2);
    const auto all = rows("select * from uptime order by boot");
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0]["shutdown"], end);
    EXPECT_EQ(all[1]["boot"], *machine.machine().boot);
}

TEST_F(UptimeTest, PeopleCanReadTheFileToo)
{
    startDaemon();
    runtime().advance(7200);
    shutDown();
    bootAgain(2);
    sleepFor(1800);
    crash();
    bootAgain(3);
    const auto all = rows("select state, hours, hours_asleep, ended is null as open from boots");
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[0], (Dictionary{{"state", "orderly"}, {"hours", 2.0}, {"hours_asleep", 0.0}, {"open", 0}}));
    EXPECT_EQ(all[1], (Dictionary{{"state", "crash"}, {"hours", 0.5}, {"hours_asleep", 0.5}, {"open", 1}}));
    EXPECT_EQ(all[2]["state"], "running");
    EXPECT_EQ(rows("select minutes from sleeps")[0]["minutes"], 30.0);
}

TEST_F(UptimeTest, AClockThatIsCorrectedMakesNoSecondRowAndNoNegativeSpan)
{
    runtime().stepWallClock(5 - now()); // the machine has no clock of its own: it starts in 1970
    boot("boot 1", 10);
    startDaemon();
    const double key = daemon->collector.boottime();
    EXPECT_EQ(key, 5);
    stepClock(1.7e9);
    runtime().advance(1000); // across a note
    startDaemon();
    stepClock(-3600); // daylight saving done wrong
    stepClock(1);     // a leap second
    runtime().advance(700);
    startDaemon();
    EXPECT_EQ(boots(), Times{5});
    EXPECT_EQ(daemon->collector.boottime(), 5);
    EXPECT_EQ(rows("select * from boottimes", "uptime-history.db").size(), 1U);

    const Value answer = ask().value();
    EXPECT_NEAR(answer["current"]["uptime"], 1710, 2);
    EXPECT_NEAR(answer["boots"][0]["length"], 1710, 2) << "not the years since 1970";
    EXPECT_EQ(answer["boots"][0]["started"], *machine.machine().boot);

    stepClock(-2e9); // far before the boot
    shutDown();
    EXPECT_GE(rows("select length from boot_records")[0]["length"], 0);
    boot("boot 2");
    machine.machine().boot = 5; // the same wrong clock again: another boot all the same
    runtime().stepWallClock(20 - now());
    startDaemon();
    EXPECT_EQ(boots(), (Times{5, 6}));
    EXPECT_EQ(ends(ask().value()), (Ends{"running", "orderly"}));
}

TEST_F(UptimeTest, AnUnknownBootTimeIsWrittenOnceItIsKnown)
{
    const double booted = *machine.machine().boot;
    machine.machine().boot = std::nullopt;
    startDaemon();
    EXPECT_EQ(daemon->collector.boottime(), 0);
    fallAsleep();
    EXPECT_TRUE(rows("select * from uptime").empty());
    EXPECT_EQ(ask().value()["current"]["uptime"], nullptr);
    machine.machine().boot = booted;
    runtime().advance(UptimeService::noteInterval + 1);
    EXPECT_EQ(boots(), Times{booted});
    EXPECT_EQ(daemon->collector.boottime(), booted);
}

/// Another program keeps uptime.db locked for as long as this lives.
struct Lock : OtherProgram {
    explicit Lock(const FakeMachine& machine) : OtherProgram(machine.context.paths.uptimeDatabase())
    {
        EXPECT_EQ(run("BEGIN IMMEDIATE"), SQLITE_OK);
    }
};

TEST_F(UptimeTest, ABootIsOneRowThoughTheFileWasLockedAtARestart)
{
    startDaemon();
    const double key = daemon->collector.boottime();
    stepClock(86'400);
    daemon.reset();
    {
        const Lock lock(machine);
        startDaemon();
        EXPECT_EQ(rows("select * from boottimes", "uptime-history.db").size(), 1U) << "the moved boot time is no key";
        EXPECT_EQ(ask().value()["current"]["boot"], key) << "reading is possible";
    }
    runtime().advance(60);
    EXPECT_EQ(daemon->collector.boottime(), key);
    EXPECT_EQ(boots(), Times{key});
    EXPECT_EQ(rows("select * from boottimes", "uptime-history.db").size(), 1U);
}

TEST_F(UptimeTest, ABootKeepsItsKeyInAFreshFile)
{
    startDaemon();
    const double key = daemon->collector.boottime();
    stepClock(86'400);
    loseFile();
    runtime().advance(700); // a note finds it gone
    EXPECT_EQ(boots(), Times{key});
    daemon.reset();
    loseFile();
    startDaemon();
    EXPECT_EQ(boots(), Times{key});
    EXPECT_EQ(rows("select time from boottimes", "uptime-history-long.db"), (std::vector<Dictionary>{{{"time", key}}}));
}

TEST_F(UptimeTest, ABootFirstWrittenLateIsInTheHistoryFilesToo)
{
    startDaemon();
    daemon.reset();
    runtime().advance(100);
    boot("boot 2");
    {
        const Lock lock(machine);
        startDaemon();
    }
    EXPECT_EQ(rows("select * from boottimes", "uptime-history.db").size(), 1U);
    runtime().advance(60);
    EXPECT_EQ(rows("select * from uptime").size(), 2U);
    EXPECT_EQ(rows("select * from boottimes", "uptime-history.db").size(), 2U);
}

TEST_F(UptimeTest, ASleepThatCouldNotBeWrittenIsWrittenLater)
{
    std::string log;
    machine.log.addListener([&log](LogLevel, std::string_view line) { log.append(line).append("\n"); });
    startDaemon();
    fallAsleep();
    const double start = sleepStart;
    runtime().sleepMachine(3600);
    {
        const Lock lock(machine);
        wake();
        sleepStart += 3600; // the end was now
        EXPECT_TRUE(rows("select * from sleep").empty());
    }
    runtime().advance(60);
    EXPECT_EQ(rows("select * from sleep"), (std::vector<Dictionary>{{{"start", start}, {"end", sleepStart}}}))
        << "once, with its own times";
    EXPECT_EQ(ask().value()["current"]["asleep"], 3600.0);
    runtime().advance(60);
    EXPECT_EQ(rows("select * from sleep").size(), 1U);
    EXPECT_NE(log.find("uptime.db: not read or not written: database is locked\n"), std::string::npos) << log;
    EXPECT_NE(log.find("uptime.db: can be written again\n"), std::string::npos) << log;
}

TEST_F(UptimeTest, WhatCouldNotBeWrittenComesBeforeALaterEnd)
{
    startDaemon();
    fallAsleep();
    runtime().sleepMachine(50);
    {
        const Lock lock(machine);
        wake();
    }
    runtime().advance(5);
    shutDown();
    bootAgain(2);
    EXPECT_EQ(rows("select * from sleep").size(), 1U);
    EXPECT_EQ(ends(ask().value()), (Ends{"running", "orderly"}));
}

TEST_F(UptimeTest, ASleepCalledOffLeavesNoRow)
{
    startDaemon();
    sleepFor(60);
    fallAsleep();
    wake();
    fallAsleep();
    stepClock(-7200);
    wake();
    EXPECT_EQ(rows("select * from sleep").size(), 1U);
    EXPECT_EQ(ends(ask().value()), Ends{"running"});
    EXPECT_EQ(ask().value()["current"]["asleep"], 60.0);
}

/// Nothing waits while the files are opened; what happens meanwhile is written afterwards, in its order and under the
/// boot's own key.
TEST_F(UptimeTest, TheStartDoesNotWaitForASlowDisk)
{
    FaultyVfs disk("slow-uptime");
    disk.whenOpened = [this] { runtime().advance(20); };
    startDaemon();
    const double key = daemon->collector.boottime();
    stepClock(86'400);
    for (const bool isEnd : {false, true}) {
        daemon.reset();
        loseFile();
        const double before = runtime().monotonicTime();
        daemon = std::make_unique<Daemon>(machine.context, HistoryDatabaseItem::Limits{.vfs = "slow-uptime"});
        EXPECT_EQ(runtime().monotonicTime(), before);
        if (isEnd) {
            shutDown();
        } else {
            daemon->service.saveShutdownTime(Farewell::Sleep, now(), [] {});
            daemon->service.saveSleep(now(), now() + 60);
            EXPECT_EQ(runtime().monotonicTime(), before);
            runtime().advance(100);
            EXPECT_EQ(daemon->collector.boottime(), key);
            EXPECT_EQ(boots(), Times{key});
            EXPECT_EQ(rows("select * from boottimes", "uptime-history.db").size(), 1U);
        }
        EXPECT_EQ(rows("select state, asleep from boot_records"),
            (std::vector<Dictionary>{{{"state", isEnd ? 3 : 1}, {"asleep", isEnd ? 0.0 : 60.0}}}));
    }
    runtime().runDue(); // what is left of the files goes before the disk
}

TEST_F(UptimeTest, ASlowDiskDoesNotHoldTheMainQueue)
{
    startDaemon();
    bool slow = false;
    bool written = false;
    daemon->databases.databaseWithPath(machine.context.paths.uptimeDatabase())
        ->queryDatabaseAsync([&](SQLiteConnection&) {
            slow = true;
            runtime().advance(20);
            slow = false;
        });
    bool allowed = false;
    runtime().after(3, [&] { allowed = slow && !written; }); // what the power manager's patience does
    daemon->service.saveShutdownTime(Farewell::Sleep, now(), [&] { written = true; });
    runtime().advance(30);
    EXPECT_TRUE(allowed);
    EXPECT_TRUE(written);
}

} // namespace
} // namespace meridal::test
