// The process table out of the kernel's own records: what is made of a record, and the programs in the kernel that runs the
// tests.

#include "platform/linux/BpfProcessSource.h"
#include "platform/linux/ProcFolder.h"
#include "platform/linux/ProcessSourceChoice.h"
#include "tests/linux/Child.h"
#include "tests/support/SlowBuild.h"
#include "tests/support/TemporaryTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
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
    std::shared_ptr<std::vector<BpfProcess>> told = std::make_shared<std::vector<BpfProcess>>();
    std::shared_ptr<Limitations> limitations = std::make_shared<Limitations>();
    BpfProcessSource source{std::make_unique<ToldReader>(told), "/nowhere", limitations};
};

RC_GTEST_PROP(SplitCpuTime, NeitherPartNorTheSumEverFalls, ())
{
    CpuTimes last;
    std::uint64_t most = 0;
    for (const auto& [run, user, system] :
        *rc::gen::arbitrary<std::vector<std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>>>()) {
        const CpuTimes now = splitCpuTime(run, user, system, last);
        RC_ASSERT(now.user >= last.user && now.system >= last.system);
        most = std::max<std::uint64_t>(most, run);
        RC_ASSERT(now.user + now.system == most);
        last = now;
    }
}

TEST(SplitCpuTime, ExactTimeIsDividedAsTicksWere)
{
    EXPECT_EQ(splitCpuTime(1000, 30, 10, {}), (CpuTimes{.user = 750, .system = 250}));
    EXPECT_EQ(splitCpuTime(1000, 0, 0, {}), (CpuTimes{.user = 1000, .system = 0}));
    EXPECT_EQ(splitCpuTime(1100, 30, 10, {.user = 900, .system = 100}), (CpuTimes{.user = 900, .system = 200}));
}

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
}

TEST_F(ToldProcesses, AReusedPidStartsAfresh)
{
    *told = {process(42)};
    told->front().runTime = 9'000;
    told->front().writtenBytes = 4096;
    const std::uint64_t identity = source.readProcesses(ProcessFields::All).front().startIdentity;
    EXPECT_EQ(identity, 500U) << "clock ticks, as in /proc";
    *told = {process(42, 7'000'000'000)};
    told->front().runTime = 3;
    const ProcessRecord& other = source.readProcesses(ProcessFields::All).front();
    EXPECT_NE(other.startIdentity, identity);
    EXPECT_EQ(other.userTime + other.systemTime, 3U);
    EXPECT_EQ(other.diskBytesWritten, 0U);
}

TEST_F(ToldProcesses, SumsBelowNothingAreNothing)
{
    *told = {process(42)};
    told->front().anonymousPages = -3;
    told->front().filePages = 2;
    told->front().writtenBytes = 10;
    told->front().cancelledBytes = 20;
    const ProcessRecord& row = source.readProcesses(ProcessFields::All).front();
    EXPECT_EQ(row.anonymous, 0U);
    EXPECT_EQ(row.residentSize, 2 * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)));
    EXPECT_EQ(row.diskBytesWritten, 0U);
}

TEST_F(ToldProcesses, SumsThatThreadsEndedUnderAreLeftOut)
{
    *told = {process(42)};
    told->front().runTime = 900;
    source.readProcesses(ProcessFields::All);
    told->front().runTime = 5'000; // one counted twice
    told->front().flags |= BPF_PROCESS_TORN;
    EXPECT_EQ(source.readProcesses(ProcessFields::All).front().present, ProcessFields::Memory);
    told->front().runTime = 1'000;
    told->front().flags &= ~static_cast<unsigned>(BPF_PROCESS_TORN);
    const ProcessRecord& row = source.readProcesses(ProcessFields::All).front();
    EXPECT_EQ(row.userTime + row.systemTime, 1'000U) << "not held at what was wrong";
}

TEST_F(ToldProcesses, AFailedLookIsMadeUpForByProcAndSeveralAreFinal)
{
    BpfProcessSource live(std::make_unique<ToldReader>(told), "/", limitations);
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

TEST(BpfUnits, AreReadOnceACgroupAndOnlyWhenTheProcessIsStillInIt)
{
    const test::TemporaryTree tree{{"proc/42/cgroup", "0::/system.slice/a.service\n"},
        {"proc/50/cgroup", "0::/system.slice/a.service\n"}, {"sys/fs/cgroup/system.slice/a.service/cgroup.procs", ""}};
    struct stat folder { };
    ASSERT_EQ(::stat((tree.root() / "sys/fs/cgroup/system.slice/a.service").c_str(), &folder), 0);
    const auto told = std::make_shared<std::vector<BpfProcess>>();
    *told = {process(42), process(43, 6'000'000'000), process(50, 7'000'000'000), process(51, 8'000'000'000)};
    (*told)[0].cgroup = (*told)[1].cgroup = folder.st_ino;
    (*told)[2].cgroup = (*told)[3].cgroup = folder.st_ino + 1; // 50 moved after its record was made
    BpfProcessSource source(std::make_unique<ToldReader>(told), tree.root(), std::make_shared<Limitations>());
    source.readProcesses(ProcessFields::All);
    EXPECT_EQ(source.responsiblePid(43), 42) << "without a file of its own";
    EXPECT_EQ(source.responsiblePid(50), 42);
    EXPECT_EQ(source.responsiblePid(51), std::nullopt);
}

struct Choice : testing::Test {
    std::unique_ptr<ProcessSource> choose(const BpfProcessLoaders& loaders)
    {
        return chooseProcessSource("/", limitations, {}, loaders);
    }
    std::string why() { return limitations->all()["process-source"]; }
    std::shared_ptr<Limitations> limitations = std::make_shared<Limitations>();
};

TEST_F(Choice, WhatDoesNotLoadGivesWayToProcAndSaysWhyOnce)
{
    const auto refused = [] {
        return Result<std::unique_ptr<BpfProcessReader>>(Unexpected{bpfError("loading", EPERM).error});
    };
    const auto source = choose({refused, refused});
    EXPECT_EQ(source->method(), "proc");
    EXPECT_FALSE(source->readProcesses(ProcessFields::All).empty());
    EXPECT_EQ(why(), "processes are read from /proc, one by one: loading: Operation not permitted");
}

TEST_F(Choice, WhatDisagreesWithProcIsNotUsed)
{
    const auto told = std::make_shared<std::vector<BpfProcess>>();
    const auto source = choose({[&] { return std::unique_ptr<BpfProcessReader>(new ToldReader(told)); }});
    EXPECT_EQ(source->method(), "proc") << "it said nothing";
    *told = {process(::getpid()), process(::getppid())};
    choose({[&] { return std::unique_ptr<BpfProcessReader>(new ToldReader(told)); }});
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
        const auto source = chooseProcessSource("/", limits, {});
        pipes.answer(dropped && source->method() == "proc" && limits->all().contains("process-source") ? '+' : '-');
    });
    char answer = 0;
    ASSERT_TRUE(child.answer(answer));
    EXPECT_EQ(answer, '+');
}

/// The walk in this kernel, or why not.
struct LiveWalk : testing::Test {
    void load(std::uint32_t capacity)
    {
        auto loaded = BpfProcessWalk::load(capacity);
        if (!loaded) {
            GTEST_SKIP() << loaded.error().message;
        }
        source.emplace(std::move(*loaded), "/", std::make_shared<Limitations>());
    }
    bool hasAll(const std::vector<std::int32_t>& pids)
    {
        const auto rows = source->readProcesses(ProcessFields::All);
        return std::all_of(pids.begin(), pids.end(), [&](std::int32_t pid) {
            return std::any_of(rows.begin(), rows.end(), [&](const auto& row) { return row.pid == pid; });
        });
    }
    std::optional<BpfProcessSource> source;
};

std::ptrdiff_t openDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

TEST_F(LiveWalk, RoomGrowsWithinThePassAndNothingStaysOpen)
{
    const auto before = openDescriptors();
    load(1);
    if (!source) {
        return;
    }
    EXPECT_GT(source->readProcesses(ProcessFields::All).size(), 5U);
    EXPECT_TRUE(hasAll({::getpid(), ::getppid()}));
    source.reset();
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(LiveWalk, LongLivedProcessesStayWhileOthersComeAndGo)
{
    load(16);
    if (!source) {
        return;
    }
    std::vector<std::unique_ptr<Child>> living;
    std::vector<std::int32_t> pids{::getpid()};
    for (int i = 0; i < 20; ++i) {
        living.push_back(std::make_unique<Child>([](const Child::Pipes& pipes) { pipes.command(); }));
        pids.push_back(living.back()->pid());
    }
    Child forker([](const Child::Pipes&) {
        for (int i = 0; i < (test::slowBuild ? 500 : 5000); ++i) {
            if (::fork() == 0) {
                ::_exit(0);
            }
            while (::waitpid(-1, nullptr, i % 8 == 7 ? 0 : WNOHANG) > 0) { }
        }
    });
    int passes = 0;
    siginfo_t ended{};
    while (::waitid(P_PID, static_cast<id_t>(forker.pid()), &ended, WEXITED | WNOWAIT | WNOHANG) == 0
        && ended.si_pid == 0) {
        ASSERT_TRUE(hasAll(pids)) << "pass " << passes;
        ++passes;
    }
    EXPECT_GT(passes, 10);
}

TEST_F(Choice, RealProgramsAgreeWithProcAndHaveEveryProcess)
{
    const auto source = chooseProcessSource("/", limitations, {});
    if (source->method() != "bpf") {
        GTEST_SKIP() << why();
    }
    ProcFolder folder("/proc");
    std::vector<std::int32_t> listed;
    ASSERT_TRUE(folder.listPids(listed));
    const auto rows = source->readProcesses(ProcessFields::All);
    for (const std::int32_t pid : listed) {
        const bool there = std::any_of(rows.begin(), rows.end(), [&](const auto& row) { return row.pid == pid; });
        EXPECT_TRUE(there || !folder.exists(pid, "stat")) << pid;
    }
}

} // namespace
} // namespace meridal
