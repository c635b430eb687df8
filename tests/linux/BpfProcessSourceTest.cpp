// SPDX-License-Identifier: Apache-2.0
// The process table out of the kernel's own records: what is made of a record, and the programs in the kernel that runs the
// tests.

#include "platform/linux/processes/BpfProcessSource.h"
#include "collectors/process/ProcessStatCollector.h"
#include "platform/linux/kernel/BpfCalls.h"
#include "platform/linux/kernel/BpfObject.h"
#include "platform/linux/kernel/ProcFolder.h"
#include "platform/linux/processes/ProcessSourceChoice.h"
#include "tests/linux/Child.h"
#include "tests/support/FakeHost.h"
#include "tests/support/TemporaryTree.h"
#include "wire/RequestKey.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <linux/bpf.h>
#include <map>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace meridal {
namespace {

using test::Child;
using testing::HasSubstr;

BpfProcess process(std::int32_t pid, std::uint64_t start = 5'000'000'000)
{
    BpfProcess made{};
    made.pid = pid;
    made.parent = 1;
    made.flags = BPF_PROCESS_HAS_IO;
    made.start = start;
    std::strcpy(made.name, "made");
    return made;
}

/// Says what the test has put in.
struct ToldReader final : BpfProcessReader {
    explicit ToldReader(std::shared_ptr<std::vector<BpfProcess>> told) : told_(std::move(told)) { }
    Result<std::span<const BpfProcess>> read(bool) override
    {
        if (told_->empty()) {
            return unexpected(ErrorCode::Unavailable, "told nothing");
        }
        return std::span<const BpfProcess>(*told_);
    }
    std::shared_ptr<std::vector<BpfProcess>> told_;
};

struct ToldProcesses : testing::Test {
    std::unique_ptr<BpfProcessReader> reader() { return std::make_unique<ToldReader>(told); }
    const ProcessRecord& read(const BpfProcess& only)
    {
        *told = {only};
        return source.readProcesses(ProcessFields::All).front();
    }

    std::shared_ptr<std::vector<BpfProcess>> told = std::make_shared<std::vector<BpfProcess>>();
    std::shared_ptr<Limitations> limitations = std::make_shared<Limitations>();
    BpfProcessSource source{reader(), "/nowhere", limitations};
};

TEST_F(ToldProcesses, RowsAreSortedAndEveryPidIsThereOnce)
{
    *told = {process(30), process(7), process(9), process(7)};
    std::vector<std::int32_t> pids;
    for (const ProcessRecord& row : source.readProcesses(ProcessFields::Cpu)) {
        pids.push_back(row.pid);
        EXPECT_EQ(row.present, ProcessFields::Cpu);
        EXPECT_EQ(row.name, "made");
    }
    EXPECT_THAT(pids, testing::ElementsAre(7, 9, 30));

    told->clear();
    for (int pid = 20; pid > 0; --pid) { // as often as pids can start over
        told->push_back(process(pid));
    }
    const auto rows = source.readProcesses(ProcessFields::Cpu);
    EXPECT_EQ(rows.size(), 20U);
    EXPECT_TRUE(std::is_sorted(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.pid < b.pid; }));
}

TEST_F(ToldProcesses, AReusedPidStartsAfresh)
{
    BpfProcess one = process(42);
    one.runTime = 9'000;
    one.writtenBytes = 4096;
    const std::uint64_t identity = read(one).startIdentity;
    EXPECT_EQ(identity, 500U) << "clock ticks, as in /proc";
    one = process(42, 7'000'000'000);
    one.runTime = 3;
    const ProcessRecord& other = read(one);
    EXPECT_NE(other.startIdentity, identity);
    EXPECT_EQ(other.cpuTime, 3U);
    EXPECT_EQ(other.diskBytesWritten, 0U);
}

TEST_F(ToldProcesses, SumsBelowNothingAreNothing)
{
    BpfProcess one = process(42);
    one.anonymousPages = -3;
    one.filePages = 2;
    one.writtenBytes = 10;
    one.cancelledBytes = 20;
    const ProcessRecord& row = read(one);
    EXPECT_EQ(row.anonymous, 0U);
    EXPECT_EQ(row.residentSize, 2 * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)));
    EXPECT_EQ(row.diskBytesWritten, 0U);
}

TEST_F(ToldProcesses, WhatAThreadDoesIsToldAsProcTellsIt)
{
    using enum RunState;
    const std::pair<std::uint16_t, RunState> states[] = {{0, Running}, {1, Sleeping}, {0x2001, Sleeping},
        {0x2, DiskWait}, {0x102, DiskWait}, {0x402, Idle}, {0x104, Stopped}, {0x8, Traced}, {0x40, Unknown},
        {0x8000, DiskWait}};
    for (const auto& [bits, state] : states) {
        BpfProcess one = process(42);
        one.state = bits;
        one.nice = -20;
        EXPECT_EQ(read(one).state, state) << bits;
        EXPECT_EQ(read(one).nice, -20);
    }
}

TEST_F(ToldProcesses, SumsThatThreadsEndedUnderAreLeftOut)
{
    BpfProcess one = process(42);
    one.runTime = 900;
    read(one);
    BpfProcess torn = one;
    torn.runTime = 5'000; // one counted twice
    torn.flags |= BPF_PROCESS_TORN;
    EXPECT_EQ(read(torn).present, ProcessFields::Memory);
    one.runTime = 1'000;
    const ProcessRecord& row = read(one);
    EXPECT_EQ(row.cpuTime, 1'000U) << "not held at what was wrong";
    one.runTime = 990;
    EXPECT_EQ(read(one).cpuTime, 1'000U) << "a thread that ended was missed";
}

TEST_F(ToldProcesses, AFailedLookIsMadeUpForByProcAndSeveralAreFinal)
{
    BpfProcessSource live(reader(), "/", limitations);
    const auto seesItself = [&] {
        const auto rows = live.readProcesses(ProcessFields::Cpu);
        return std::any_of(rows.begin(), rows.end(), [](const ProcessRecord& row) { return row.pid == ::getpid(); });
    };
    EXPECT_TRUE(seesItself());
    EXPECT_THAT(limitations->all()["process-source"], HasSubstr("told nothing"));
    *told = {process(42)};
    EXPECT_EQ(live.readProcesses(ProcessFields::All).size(), 1U);
    EXPECT_FALSE(limitations->all().contains("process-source"));
    told->clear();
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(live.method(), "bpf");
        EXPECT_TRUE(seesItself());
    }
    *told = {process(42)};
    EXPECT_EQ(live.method(), "proc");
    EXPECT_TRUE(seesItself());
}

TEST_F(ToldProcesses, NamesOfKernelThreadsAreReadWholeAndOnce)
{
    const auto stat = [](int pid, std::string_view name) {
        return fmt::format("{} ({}) S 2 0 0 0 -1 2097248 0 0 0 0 0 0 0 0 20 0 1 0 5 0 0\n", pid, name);
    };
    const test::TemporaryTree tree{{"proc/16/stat", stat(16, "rcu_exp_par_gp_kthread_worker/0")},
        {"proc/16/status", "Tgid:\t16\n"}, {"proc/17/stat", stat(17, "kworker/u257:10-events_unbound")},
        {"proc/17/status", "Tgid:\t17\n"}, {"proc/18/stat", stat(18, "not looked at")}};
    for (const auto& [pid, name] :
        {std::pair(16, "rcu_exp_par_gp_"), {17, "kworker/u257:10"}, {18, "ab/cd/ef/gh/ijk"}}) {
        std::strcpy(told->emplace_back(process(pid)).name, name);
    }
    (*told)[0].flags |= BPF_PROCESS_KERNEL_THREAD;
    (*told)[1].flags |= BPF_PROCESS_KERNEL_THREAD;
    BpfProcessSource named(reader(), tree.root(), limitations);
    const auto names = [&] {
        std::vector<std::string> given;
        for (const ProcessRecord& row : named.readProcesses(ProcessFields::Cpu)) {
            given.emplace_back(row.name);
        }
        return given;
    };
    const auto all = testing::ElementsAre("rcu_exp_par_gp_kthread_worker/0", "kworker/u257:10", "ab/cd/ef/gh/ijk");
    EXPECT_THAT(names(), all);
    EXPECT_EQ(named.executablePath(18, "ab/cd/ef/gh/ijk"), std::nullopt);
    tree.remove("proc");
    EXPECT_THAT(names(), all);
    (*told)[0].start += 1'000'000'000;
    EXPECT_THAT(names().front(), "rcu_exp_par_gp_") << "another under its pid";
}

TEST_F(ToldProcesses, UnitsAreReadOnceACgroupAndOnlyWhenTheProcessIsStillInIt)
{
    const test::TemporaryTree tree{{"proc/42/cgroup", "0::/system.slice/a.service\n"},
        {"proc/50/cgroup", "0::/system.slice/a.service\n"}, {"sys/fs/cgroup/system.slice/a.service/cgroup.procs", ""},
        {"proc/60/cgroup", "1:name=systemd:/system.slice/a.service\n0::/\n"}};
    const auto inode = [&](const char* path) {
        struct stat status { };
        EXPECT_EQ(::stat((tree.root() / path).c_str(), &status), 0);
        return status.st_ino;
    };
    const auto folder = inode("sys/fs/cgroup/system.slice/a.service");
    const auto top = inode("sys/fs/cgroup");
    for (const std::int32_t pid : {42, 43, 50, 51, 60, 61}) {
        told->push_back(process(pid));
        told->back().cgroups = 7;
        told->back().cgroup = pid < 50 ? folder : pid < 60 ? folder + 1 : top;
    }
    BpfProcessSource grouped(reader(), tree.root(), limitations);
    const auto units = [&] {
        std::vector<std::uint32_t> numbers;
        for (const ProcessRecord& row : grouped.readProcesses(ProcessFields::All)) {
            numbers.push_back(row.unit.number);
        }
        return numbers;
    };
    // 43 without a file of its own, 50 moved since its record was made, 51 cannot be read; and where another hierarchy tells
    // the unit, who shares the one control group of this one shares nothing.
    EXPECT_EQ(units(), std::vector<std::uint32_t>({1, 1, 1, 0, 1, 0}));
    (*told)[0].cgroup = folder + 2; // moved, with a file to tell it
    tree.write("proc/42/cgroup", "0::/system.slice/b.service\n");
    EXPECT_EQ(units().front(), 2U);
    // 60's group of the unified hierarchy stays as it is. Its file is looked at when its groups are others.
    tree.write("proc/60/cgroup", "1:name=systemd:/system.slice/b.service\n0::/\n");
    for (int pass = 0; pass < 200; ++pass) {
        ASSERT_EQ(units()[4], 1U);
    }
    (*told)[4].cgroups = 8;
    EXPECT_EQ(units()[4], 2U);
}

struct Choice : ToldProcesses {
    std::unique_ptr<ProcessSource> choose(const BpfProcessLoaders& loaders)
    {
        return chooseProcessSource("/", limitations, {}, loaders);
    }
    std::string why() { return limitations->all()["process-source"]; }
};

TEST_F(Choice, WhatDoesNotLoadGivesWayToProcAndSaysWhyOnce)
{
    const auto refused = [] {
        return Result<std::unique_ptr<BpfProcessReader>>(Unexpected{bpfError("loading", EPERM).error});
    };
    const auto chosen = choose({refused, refused});
    EXPECT_EQ(chosen->method(), "proc");
    EXPECT_FALSE(chosen->readProcesses(ProcessFields::All).empty());
    EXPECT_EQ(why(), "processes are read from /proc, one by one: loading: Operation not permitted");
}

TEST_F(Choice, WhatDisagreesWithProcIsNotUsed)
{
    const auto load = [this] { return reader(); };
    EXPECT_EQ(choose({load})->method(), "proc") << "it said nothing";
    *told = {process(::getpid()), process(::getppid())};
    choose({load});
    EXPECT_THAT(why(), HasSubstr("disagree about process"));
}

TEST_F(Choice, AnOrdinaryUserIsRefusedAndGetsProc)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "takes root to become another user";
    }
    const Child child([](const Child::Pipes& pipes) {
        constexpr uid_t nobody = 65534;
        const auto limits = std::make_shared<Limitations>();
        const bool dropped = ::setresuid(nobody, nobody, nobody) == 0;
        const auto chosen = chooseProcessSource("/", limits, {});
        pipes.answer(dropped && chosen->method() == "proc" && limits->all().contains("process-source") ? '+' : '-');
    });
    EXPECT_EQ(child.answer(), '+');
}

/// What every way to read a process must tell alike, by pid: who it is, and what people see of it.
std::map<std::int32_t, std::string> tableOf(test::FakeMachine& machine, std::unique_ptr<ProcessSource>& source)
{
    std::swap(machine.host.processes, source);
    ProcessStatCollector collector(machine.context);
    collector.setUpdateMask(mask(RequestKey::Memory)); // with whom it belongs to
    collector.update();
    std::map<std::int32_t, std::string> table;
    for (auto* item : collector.processes()) {
        table[item->pid] = fmt::format("{} child of {}, started at {}, {} threads of user {} at {}",
            collector.sharingNameForProcess(*item, false), item->parentPid, item->startIdentity, item->threads,
            item->user().value_or(0), item->nice);
    }
    std::swap(machine.host.processes, source);
    return table;
}

TEST_F(Choice, EveryWayTellsTheSameOfEveryProcessOfThisMachine)
{
    const Child named([](const Child::Pipes& pipes) {
        ::prctl(PR_SET_NAME, "ab/cd/ef/gh/ijk");
        ::nice(5);
        pipes.answer('!');
        pipes.command();
    });
    const Child ended([](const Child::Pipes&) {});
    ASSERT_TRUE(named.answer());
    ended.awaitEnd();
    test::FakeMachine machine;
    std::unique_ptr<ProcessSource> proc = std::make_unique<ProcProcessSource>("/", limitations);
    auto chosen = chooseProcessSource("/", limitations, {});
    EXPECT_EQ(tableOf(machine, proc).at(named.pid()).find("ab/cd/ef/gh/ijk child"), 0U);
    if (chosen->method() != "bpf") {
        GTEST_SKIP() << why();
    }
    const auto before = tableOf(machine, proc);
    const auto bpf = tableOf(machine, chosen);
    const auto after = tableOf(machine, proc);
    for (const auto& [pid, process] : before) {
        if (after.contains(pid) && after.at(pid) == process) { // it neither ended nor started a program meanwhile
            EXPECT_EQ(bpf.contains(pid) ? bpf.at(pid) : "missing", process) << pid;
        }
    }
    for (const auto& [pid, process] : bpf) {
        EXPECT_TRUE(before.contains(pid) || after.contains(pid) || !ProcFolder("/proc").exists(pid, "stat")) << process;
    }
    EXPECT_FALSE(bpf.contains(ended.pid())) << "a zombie";
}

std::uint64_t residentSizeOf(std::int32_t pid, ProcessSource& source)
{
    for (const ProcessRecord& row : source.readProcesses(ProcessFields::All)) {
        if (row.pid == pid) {
            return row.residentSize;
        }
    }
    return 0;
}

/// It is gone into when a daemon starts, which nobody can ask anything meanwhile: 200,000 steps take half a second.
TEST(BpfPrograms, TheKernelHasFewStepsToCheck)
{
    int loaded = 0;
    for (const auto& [file, name] : {std::pair("process_walk", "walk"), std::pair("process_dump", "dump")}) {
        const auto object = BpfObject::load(file);
        if (!object) {
            continue; // not here, which other tests tell
        }
        ++loaded;
        bpf_prog_info info{};
        bpf_attr attributes{};
        attributes.info.bpf_fd = static_cast<std::uint32_t>(object->program(name));
        attributes.info.info_len = sizeof info;
        attributes.info.info = bpfAddress(&info);
        ASSERT_EQ(bpfCall(BPF_OBJ_GET_INFO_BY_FD, attributes), 0);
        EXPECT_LT(info.verified_insns, 20'000U) << name; // 0 where the kernel does not tell
    }
    if (loaded == 0) {
        GTEST_SKIP() << "no BPF program on processes loads here";
    }
}

/// Sleepers' pages are not summed up in every pass; what somebody else does to them is told all the same.
TEST_F(Choice, PagesTakenFromASleeperAreToldWithinSixteenPasses)
{
    constexpr std::size_t size = 8 << 20;
    const int file = ::memfd_create("pages", MFD_CLOEXEC);
    ASSERT_EQ(::ftruncate(file, size), 0);
    const Child sleeper([file](const Child::Pipes& pipes) {
        void* pages = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        std::memset(pages, 1, size);
        pipes.answer('!');
        pipes.command();
    });
    ASSERT_TRUE(sleeper.answer());
    const auto chosen = chooseProcessSource("/", limitations, {});
    if (chosen->method() != "bpf") {
        GTEST_SKIP() << why();
    }
    const std::uint64_t before = residentSizeOf(sleeper.pid(), *chosen);
    EXPECT_GE(before, size);
    EXPECT_EQ(residentSizeOf(sleeper.pid(), *chosen), before);
    ASSERT_EQ(::ftruncate(file, 0), 0); // which takes the pages from whoever has mapped them
    ::close(file);
    std::uint64_t after = before;
    for (int pass = 0; pass < 16; ++pass) {
        after = residentSizeOf(sleeper.pid(), *chosen);
    }
    const auto heldBack = 64.0 * static_cast<double>(::sysconf(_SC_PAGESIZE)); // by a thread, in kernels up to 6.1
    EXPECT_NEAR(static_cast<double>(after), static_cast<double>(before - size), heldBack);
}

} // namespace
} // namespace meridal
