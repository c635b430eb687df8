// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/ProcProcessSource.h"
#include "tests/support/TemporaryTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <unistd.h>

namespace meridal {
namespace {

/// One process of a recorded table.
struct Recorded {
    int pid = 0;
    std::string name = "program";
    int parent = 0;
    char state = 'S';
    int userTicks = 0;
    int threads = 1;
    int start = 500;
    int residentKilobytes = 100;
    int written = 0;
    int cancelled = 0;
    std::string schedstat = "1000 10 5";
    std::string cgroup = "0::/";
};

struct ProcTable : testing::Test {
    void record(const Recorded& process)
    {
        const std::string folder = fmt::format("proc/{}/", process.pid);
        tree.write(folder + "stat",
            fmt::format("{} ({}) {} {} 1 1 0 -1 0 0 0 0 0 {} 0 0 0 20 0 {} 0 {} 0 0\n", process.pid, process.name,
                process.state, process.parent, process.userTicks, process.threads, process.start));
        tree.write(folder + "status",
            fmt::format("Uid:\t7\t1000\t7\t7\nVmRSS:\t{0} kB\nRssAnon:\t{0} kB\nvoluntary_ctxt_switches:\t1\n",
                process.residentKilobytes));
        tree.write(folder + "io",
            fmt::format(
                "read_bytes: 0\nwrite_bytes: {}\ncancelled_write_bytes: {}\n", process.written, process.cancelled));
        tree.write(folder + "schedstat", process.schedstat + "\n");
        tree.write(folder + "cgroup", process.cgroup + "\n");
    }
    const ProcessRecord* row(int pid, ProcessFields wanted = ProcessFields::All)
    {
        const auto rows = source.readProcesses(wanted);
        const auto found = std::find_if(rows.begin(), rows.end(), [&](const auto& each) { return each.pid == pid; });
        return found == rows.end() ? nullptr : &*found;
    }
    void settle() // until rows are taken over
    {
        source.readProcesses(ProcessFields::All);
        source.readProcesses(ProcessFields::All);
    }

    const std::uint64_t tick = 1'000'000'000 / static_cast<std::uint64_t>(::sysconf(_SC_CLK_TCK)); // ns
    test::TemporaryTree tree{{"proc/self/stat", "not a process"}, {"proc/99/maps", "vanishing: no stat"}};
    std::shared_ptr<Limitations> limitations = std::make_shared<Limitations>();
    ProcProcessSource source{tree.root(), limitations};
};

TEST_F(ProcTable, RowsComeInOrderAndWithoutTheVanished)
{
    record({.pid = 300, .name = "last"});
    record({.pid = 20, .name = "first", .userTicks = 4});
    const auto rows = source.readProcesses(ProcessFields::All);
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0].name, "first");
    EXPECT_EQ(rows[0].cpuTime, 4 * tick);
    EXPECT_EQ(rows[0].anonymous, 102400U);
    EXPECT_EQ(rows[0].user, 1000U);
    EXPECT_EQ(rows[0].state, RunState::Sleeping);
    EXPECT_EQ(rows[0].present, ProcessFields::All);
    EXPECT_EQ(rows[1].pid, 300);

    tree.remove("proc/300/io"); // ended while it was read
    tree.remove("proc/300/stat");
    EXPECT_EQ(source.readProcesses(ProcessFields::All).size(), 1U);
    EXPECT_TRUE(limitations->all().empty());
}

TEST_F(ProcTable, OnlyGroupsWantedArePresentAlsoWhenAskedForLater)
{
    const ProcessFields both = ProcessFields::Cpu | ProcessFields::Disk;
    record({.pid = 20, .written = 4096});
    EXPECT_EQ(row(20, ProcessFields::Cpu)->present, ProcessFields::Cpu);
    row(20, ProcessFields::Cpu);
    tree.remove("proc/20/status");
    const ProcessRecord* later = row(20, both);
    EXPECT_EQ(source.takenOver(), 1U);
    EXPECT_EQ(later->present, both);
    EXPECT_EQ(later->diskBytesWritten, 4096U);
    EXPECT_FALSE(row(20, ProcessFields::Memory)) << "a missing file means that the process is gone";
}

TEST_F(ProcTable, WhatDidNotRunIsTakenOverForLessThanSixteenPasses)
{
    record({.pid = 20});
    settle();
    record({.pid = 20, .residentKilobytes = 200}); // behind the back of the process
    EXPECT_EQ(row(20)->residentSize, 102400U);
    EXPECT_EQ(source.takenOver(), 1U);
    EXPECT_EQ(row(20)->name, "program");
    int passes = 3;
    while (row(20)->residentSize != 204800U && passes < 100) {
        ++passes;
    }
    EXPECT_LE(passes, 16);
    settle();
    record({.pid = 20, .userTicks = 1, .residentKilobytes = 300, .schedstat = "1001 10 6"});
    EXPECT_EQ(row(20)->residentSize, 307200U);
    EXPECT_EQ(source.takenOver(), 0U);
}

TEST_F(ProcTable, ThreadsRunnersAndNewcomersAreAlwaysRead)
{
    record({.pid = 20, .threads = 2});
    record({.pid = 21, .state = 'R'});
    record({.pid = 22, .schedstat = "0 0 0"}); // never ran: another one under its pid would look the same
    settle();
    for (const int pid : {20, 21, 22}) {
        record(
            {.pid = pid, .userTicks = 7, .threads = pid == 20 ? 2 : 1, .schedstat = pid == 22 ? "0 0 0" : "1000 10 5"});
        EXPECT_EQ(row(pid)->cpuTime, 7 * tick) << pid;
    }
}

TEST_F(ProcTable, RunTimesOfAllThreadsInOneAnswerStandForTheFiles)
{
    std::map<int, proc::Schedstat> told{{20, {10, 0, 1}}, {21, {10, 0, 1}}};
    bool works = true;
    ProcProcessOptions options;
    options.runTimes = [&](std::span<const std::int32_t> pids, std::vector<proc::Schedstat>& sums) {
        sums.assign(pids.size(), {});
        std::transform(pids.begin(), pids.end(), sums.begin(), [&](int pid) { return told[pid]; });
        return works;
    };
    ProcProcessSource asking(tree.root(), limitations, options);
    const auto cpuTimes = [&] {
        std::vector<std::uint64_t> ticks;
        for (const ProcessRecord& each : asking.readProcesses(ProcessFields::All)) {
            ticks.push_back(each.cpuTime / tick);
        }
        return ticks;
    };
    const auto recordBoth = [&](int ticks) {
        record({.pid = 20, .userTicks = ticks, .threads = 2});
        record({.pid = 21, .userTicks = ticks});
    };
    recordBoth(1);
    cpuTimes();
    cpuTimes();
    recordBoth(2);
    EXPECT_EQ(cpuTimes(), (std::vector<std::uint64_t>{1, 1}));
    told[20] = {12, 1, 2};
    EXPECT_EQ(cpuTimes(), (std::vector<std::uint64_t>{2, 1}));
    told[21] = {}; // its answer is missing
    EXPECT_EQ(cpuTimes(), (std::vector<std::uint64_t>{2, 2}));
    works = false;
    recordBoth(3);
    EXPECT_EQ(cpuTimes(), (std::vector<std::uint64_t>{3, 3}));
    works = true;
    told[21] = {10, 0, 1};
    cpuTimes();
    cpuTimes();
    EXPECT_EQ(asking.takenOver(), 2U) << "one answer was missing";
    works = false;
    for (int i = 0; i < 5; ++i) { // three, and two for something to compare with
        cpuTimes();
    }
    EXPECT_EQ(asking.takenOver(), 1U) << "by its file, the one with one thread";
}

TEST_F(ProcTable, AKernelWithoutRunTimesEndsTheTakingOver)
{
    record({.pid = 20, .userTicks = 5, .schedstat = "0 0 0"});
    record({.pid = 21});
    settle();
    settle();
    EXPECT_EQ(source.takenOver(), 0U);
    record({.pid = 21, .userTicks = 9});
    EXPECT_EQ(row(21)->cpuTime, 9 * tick);
}

TEST_F(ProcTable, AnOrphanGetsItsNewParentAtOnce)
{
    record({.pid = 1, .parent = 0, .start = 1});
    record({.pid = 20, .parent = 1});
    record({.pid = 30, .parent = 20});
    record({.pid = 31, .parent = 30, .start = 600});
    settle();
    tree.remove("proc/20");
    record({.pid = 30, .parent = 1});
    EXPECT_EQ(row(30)->parentPid, 1);

    settle();
    record({.pid = 30, .parent = 1, .start = 900, .schedstat = "7 7 7"}); // another process under the parent's pid
    record({.pid = 31, .parent = 1, .start = 600});
    EXPECT_EQ(row(31)->parentPid, 1);
}

TEST_F(ProcTable, AHiddenParentIsNoReasonToReadEveryTime)
{
    record({.pid = 20, .parent = 5});
    settle();
    settle();
    EXPECT_EQ(source.takenOver(), 1U);
}

TEST_F(ProcTable, AReusedPidStartsAfresh)
{
    record({.pid = 20, .name = "old", .written = 9000});
    settle();
    record({.pid = 20, .name = "new", .start = 900, .written = 10, .schedstat = "5 1 2"});
    const ProcessRecord* now = row(20);
    EXPECT_EQ(now->name, "new");
    EXPECT_EQ(now->startIdentity, 900U);
    EXPECT_EQ(now->diskBytesWritten, 10U) << "the mark belonged to the other";
}

TEST_F(ProcTable, BytesWrittenNeverGoBack)
{
    const auto written = [&](int bytes, int cancelled) {
        record({.pid = 20, .threads = 2, .written = bytes, .cancelled = cancelled});
        return row(20)->diskBytesWritten;
    };
    EXPECT_EQ(written(8192, 0), 8192U);
    EXPECT_EQ(written(8192, 4096), 8192U);
    EXPECT_EQ(written(16384, 4096), 12288U);
    EXPECT_EQ(written(16384, 99999), 12288U) << "others' pages dropped";
}

TEST_F(ProcTable, AMissingTableGivesNothingAndTheNextPassGoesOn)
{
    ProcProcessSource missing(tree.root() / "nowhere", limitations);
    EXPECT_TRUE(missing.readProcesses(ProcessFields::All).empty());
    EXPECT_TRUE(source.readProcesses(ProcessFields::All).empty());
    record({.pid = 20});
    EXPECT_TRUE(row(20));
}

TEST_F(ProcTable, AKernelWithoutStorageAccountsIsALimitation)
{
    record({.pid = 20});
    tree.remove("proc/20/io");
    EXPECT_EQ(row(20)->present, ProcessFields::Cpu | ProcessFields::Memory | ProcessFields::Wakeups);
    EXPECT_EQ(limitations->all().count("disk"), 1U);
}

TEST_F(ProcTable, FullNamesComeFromArgumentsOrTheProgram)
{
    using namespace std::string_literals;
    tree.write("proc/20/cmdline", "python3\0/opt/some-very-long-script\0"s);
    EXPECT_EQ(source.executablePath(20, "some-very-long-"), "/opt/some-very-long-script");
    tree.write("proc/21/cmdline", "some-very-long-thing: idle\0"s);
    tree.link("proc/21/exe", "/usr/bin/some-very-long-thing (deleted)");
    EXPECT_EQ(source.executablePath(21, "some-very-long-"), "/usr/bin/some-very-long-thing");
    EXPECT_EQ(source.executablePath(21, ""), "/usr/bin/some-very-long-thing");
    EXPECT_EQ(source.executablePath(21, "something-other"), std::nullopt);
    EXPECT_EQ(source.executablePath(4242, "some-very-long-"), std::nullopt);
}

TEST_F(ProcTable, UnitsAreReadSeldomButAMoveAfterTheStartIsSeen)
{
    const std::string app = "0::/user.slice/user@1.service/app.slice/app-x.scope";
    const std::string session = "0::/user.slice/session-1.scope";
    record({.pid = 40, .start = 700, .cgroup = app + "/tab"});
    record({.pid = 50, .start = 600, .cgroup = app});
    record({.pid = 70, .start = 100'000, .cgroup = session}); // 1,000 s later: started just now
    const auto unit = [this](int pid) { return row(pid)->unit; };
    EXPECT_EQ(unit(40), unit(50));
    EXPECT_EQ(unit(40).kind, ProcessUnitKind::Application);
    EXPECT_EQ(unit(70).kind, ProcessUnitKind::Shared);
    const auto passesUntilSeen = [&](int pid, const std::string& cgroup) {
        const ProcessUnit before = unit(pid);
        tree.write(fmt::format("proc/{}/cgroup", pid), cgroup + "\n");
        int passes = 1;
        while (passes < 1000 && unit(pid) == before) {
            ++passes;
        }
        return passes;
    };
    record({.pid = 80, .start = 100'100, .cgroup = session});
    EXPECT_EQ(unit(80).kind, ProcessUnitKind::Shared);
    EXPECT_LE(passesUntilSeen(80, app), 2) << "a desktop moves what it has launched";
    EXPECT_EQ(unit(80), unit(40));
    EXPECT_LE(passesUntilSeen(70, app), 16);
    const int old = passesUntilSeen(40, session);
    EXPECT_TRUE(old > 100 && old < 256) << old;
    EXPECT_EQ(source.unitName(unit(50)), "");
}

} // namespace
} // namespace meridal
