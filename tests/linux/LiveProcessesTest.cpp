// SPDX-License-Identifier: Apache-2.0
// The process table against the kernel that runs the tests.

#include "platform/linux/kernel/RootFolder.h"
#include "platform/linux/processes/BpfProcessSource.h"
#include "platform/linux/processes/ProcProcessSource.h"
#include "platform/linux/processes/TaskStatistics.h"
#include "tests/linux/Child.h"
#include "tests/support/TemporaryTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <future>
#include <random>
#include <set>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <thread>
#include <vector>

namespace meridal {
namespace {

using test::Child;

/// The ways to read the table. All of them must say the same.
enum class Way { Proc, BpfWalk, BpfDump };

const char* nameOf(Way way) { return way == Way::Proc ? "Proc" : way == Way::BpfWalk ? "BpfWalk" : "BpfDump"; }

std::ptrdiff_t openDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

constexpr ino_t firstPidNamespace = 0xEFFFFFFC; ///< of processes that count pids as the kernel itself does

struct LiveProcesses : testing::TestWithParam<Way> {
    void SetUp() override
    {
        if (GetParam() == Way::Proc) {
            source = std::make_unique<ProcProcessSource>("/", limitations);
            return;
        }
        struct stat state { };
        if (::stat("/proc/self/ns/pid", &state) == 0 && state.st_ino != firstPidNamespace) {
            GTEST_SKIP() << "in a container the kernel's process numbers are others than ours";
        }
        // Room for one grows within the first pass.
        auto reader = GetParam() == Way::BpfWalk ? BpfProcessWalk::load(1) : BpfProcessDump::load();
        if (!reader) {
            GTEST_SKIP() << reader.error().message;
        }
        source = std::make_unique<BpfProcessSource>(std::move(*reader), "/", limitations);
    }

    void TearDown() override
    {
        source.reset();
        EXPECT_EQ(openDescriptors(), openBefore);
    }

    const ProcessRecord* row(pid_t pid)
    {
        const auto rows = source->readProcesses(ProcessFields::All);
        const auto found = std::find_if(rows.begin(), rows.end(), [&](const auto& each) { return each.pid == pid; });
        return found == rows.end() ? nullptr : &*found;
    }

    void expectCpuTime(const ProcessRecord& record, double seconds) const
    {
        const double recorded = static_cast<double>(record.cpuTime) / source->timeBase();
        EXPECT_NEAR(recorded, seconds, 2 * source->cpuResolution() + 0.02 * seconds);
    }

    const std::ptrdiff_t openBefore = openDescriptors();
    std::shared_ptr<Limitations> limitations = std::make_shared<Limitations>();
    std::unique_ptr<ProcessSource> source;
};

using Crowd = std::vector<std::unique_ptr<Child>>;

Crowd crowdOf(int size, const std::function<void(const Child::Pipes&)>& run)
{
    Crowd crowd;
    for (int i = 0; i < size; ++i) {
        crowd.push_back(std::make_unique<Child>(run));
    }
    return crowd;
}

INSTANTIATE_TEST_SUITE_P(Ways, LiveProcesses, testing::Values(Way::Proc, Way::BpfWalk, Way::BpfDump),
    [](const auto& each) { return nameOf(each.param); });

double ownCpuTime()
{
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

void spinFor(double seconds)
{
    for (const double end = ownCpuTime() + seconds; ownCpuTime() < end;) { }
}

char stateOf(pid_t pid)
{
    const std::string text = RootFolder("/").read(fmt::format("proc/{}/stat", pid)).value_or("");
    const auto stat = proc::parseStat(text);
    return stat ? stat->state : 'X';
}

void awaitBlocked(pid_t pid)
{
    while (std::string_view("RDT").find(stateOf(pid)) != std::string_view::npos) {
        ::sched_yield();
    }
}

TEST_P(LiveProcesses, ThisProcessIsAmongThem)
{
    const ProcessRecord* self = row(::getpid());
    ASSERT_TRUE(self);
    EXPECT_EQ(self->parentPid, ::getppid());
    EXPECT_EQ(self->status, ProcessStatus::Alive);
    EXPECT_EQ(self->present, ProcessFields::All);
    EXPECT_EQ(self->name, "test_linux");
    EXPECT_GE(self->physFootprint, self->anonymous);
    EXPECT_GT(self->residentSize, 1U << 20);
    const auto path = source->executablePath(self->pid, self->name);
    ASSERT_TRUE(path);
    EXPECT_TRUE(path->ends_with("/test_linux")) << *path;
    // Absent where the build lies in a home.
    EXPECT_TRUE(source->bundleLocation(self->pid, {}).value_or("/test_linux").ends_with("/test_linux"));
    EXPECT_EQ(source->commandName(::getpid()), "test_linux");
    std::thread([this] {
        EXPECT_EQ(source->commandName(::gettid()), std::nullopt) << "a thread is no process";
    }).join();
}

/// A control group of the test's own in a hierarchy of the machine; gone with the object.
struct ControlGroup {
    ControlGroup(const std::string& hierarchy, const std::string& name)
        : top(fmt::format("{}/meridal-test-{}", hierarchy, ::getpid())), path(top + name)
    {
        std::error_code failure;
        std::filesystem::create_directories(path, failure);
        made = !failure && std::filesystem::exists(path + "/cgroup.procs");
        home = hierarchy + "/cgroup.procs";
    }
    ~ControlGroup()
    {
        for (std::string folder = path; folder.size() >= top.size(); folder.resize(folder.rfind('/'))) {
            ::rmdir(folder.c_str());
        }
    }
    static bool put(const std::string& into, pid_t pid)
    {
        std::ofstream file(into);
        file << pid << std::flush;
        return file.good();
    }
    bool take(pid_t pid) const { return put(path + "/cgroup.procs", pid); }
    void release(pid_t pid) const { put(home, pid); }
    std::string top;
    std::string path;
    std::string home;
    bool made = false;
};

TEST_P(LiveProcesses, AProcessIsSeenToMoveBetweenRealControlGroups)
{
    const std::string containerId(64, 'c');
    int tried = 0;
    for (const char* hierarchy : {"/sys/fs/cgroup", "/sys/fs/cgroup/unified", "/sys/fs/cgroup/systemd"}) {
        const ControlGroup container(hierarchy, "/docker-" + containerId + ".scope");
        if (!container.made) {
            continue;
        }
        const Child first([](const Child::Pipes& pipes) { pipes.command(); });
        const Child second([](const Child::Pipes& pipes) { pipes.command(); });
        const ProcessUnit before = row(first.pid())->unit;
        if (!container.take(first.pid()) || !container.take(second.pid())) {
            continue;
        }
        ++tried;
        row(first.pid()); // one pass more, where the records do not tell
        const ProcessUnit after = row(first.pid())->unit;
        EXPECT_NE(after, before);
        EXPECT_EQ(after.kind, ProcessUnitKind::Container);
        EXPECT_EQ(source->unitName(after), std::string(12, 'c'));
        EXPECT_EQ(row(second.pid())->unit, after);
        container.release(first.pid());
        container.release(second.pid());
    }
    if (tried == 0) {
        GTEST_SKIP() << "no control group can be made here: it takes root and a writable hierarchy";
    }
}

TEST_P(LiveProcesses, AZombieIsThereUntilReaped)
{
    Child child([](const Child::Pipes&) {});
    child.awaitEnd();
    const ProcessRecord* zombie = row(child.pid());
    ASSERT_TRUE(zombie);
    EXPECT_EQ(zombie->status, ProcessStatus::Zombie);
    EXPECT_TRUE(has(zombie->present, ProcessFields::Cpu | ProcessFields::Memory));
    EXPECT_EQ(zombie->residentSize, 0U);
    EXPECT_EQ(source->executablePath(child.pid(), "anything"), std::nullopt);
    EXPECT_EQ(source->commandName(child.pid()), std::nullopt);
    child.reap();
    EXPECT_FALSE(row(child.pid()));
}

TEST_P(LiveProcesses, AProcessLivesOnWithoutItsMainThread)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer allows no threads in a child";
#endif
    const Child child([](const Child::Pipes& pipes) {
        std::thread([pipes] {
            while (pipes.command() == 'w') {
                spinFor(0.1);
                pipes.answer(ownCpuTime());
            }
            ::_exit(0);
        }).detach();
        ::syscall(SYS_exit, 0); // this thread alone, and nothing is unwound
    });
    while (stateOf(child.pid()) != 'Z') {
        ::sched_yield();
    }
    for (int look = 0; look < 2; ++look) {
        const double used = child.ask<double>('w');
        const ProcessRecord* headless = row(child.pid());
        ASSERT_TRUE(headless);
        EXPECT_EQ(headless->status, ProcessStatus::Alive);
        EXPECT_EQ(headless->name, "test_linux");
        expectCpuTime(*headless, used);
        EXPECT_GT(headless->residentSize, 1U << 20);
        EXPECT_GT(headless->anonymous, 0U);
    }
    const auto path = source->executablePath(child.pid(), "");
    EXPECT_TRUE(path && path->ends_with("/test_linux")) << path.value_or("");
    EXPECT_EQ(source->commandName(child.pid()), "test_linux");
}

TEST_P(LiveProcesses, KernelThreadsHaveNoMemoryOfTheirOwn)
{
    const ProcessRecord* thread = row(2);
    if (!thread || thread->name != "kthreadd") {
        GTEST_SKIP() << "this table shows no kernel threads";
    }
    EXPECT_TRUE(has(thread->present, ProcessFields::Memory));
    EXPECT_EQ(thread->residentSize, 0U);
    EXPECT_EQ(thread->physFootprint, 0U);
    EXPECT_EQ(source->executablePath(2, ""), std::nullopt);
}

TEST_P(LiveProcesses, ANameOfAnyBytesIsGivenAsItIs)
{
    constexpr const char* name = ") R 1 (\n\xFF x y"; // within 15 bytes
    const Child child([&](const Child::Pipes& pipes) {
        ::prctl(PR_SET_NAME, name);
        pipes.answer('!');
        pipes.command();
    });
    ASSERT_TRUE(child.answer());
    const ProcessRecord* odd = row(child.pid());
    ASSERT_TRUE(odd);
    EXPECT_EQ(odd->name, name);
    EXPECT_EQ(odd->parentPid, ::getpid());
}

TEST_P(LiveProcesses, CutNamesAreCompleted)
{
    const test::TemporaryTree tree{{"a-script-with-a-long-name", "#!/bin/sh\nread answer\n"}};
    const auto script = tree.root() / "a-script-with-a-long-name";
    const auto program = tree.root() / "a-program-with-a-long-name";
    std::filesystem::copy_file("/bin/cat", program);
    for (const auto& path : {script, program}) {
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        const Child child([&](const Child::Pipes& pipes) {
            ::dup2(pipes.commands, 0); // so that it waits
            ::execl(path.c_str(), path.c_str(), nullptr);
            pipes.answer('!'); // it did not start
        });
        ASSERT_FALSE(child.answer()) << "cannot start " << path;
        const ProcessRecord* cut = row(child.pid());
        ASSERT_TRUE(cut);
        EXPECT_TRUE(source->mayBeCut(cut->name.size()));
        EXPECT_TRUE(path.filename().string().starts_with(cut->name)) << cut->name;
        EXPECT_EQ(source->executablePath(child.pid(), cut->name), path.string());
    }
}

TEST_P(LiveProcesses, LongLivedProcessesStayWhileOthersComeAndGo)
{
    const Crowd living = crowdOf(20, [](const Child::Pipes& pipes) { pipes.command(); });
    const Child forker([](const Child::Pipes& pipes) {
        for (int i = 0; !pipes.hasCommand(); ++i) {
            if (::fork() == 0) {
                ::_exit(0);
            }
            while (::waitpid(-1, nullptr, i % 8 == 7 ? 0 : WNOHANG) > 0) { } // a few at a time
        }
        while (::waitpid(-1, nullptr, 0) > 0) { }
    });
    const int passes = GetParam() == Way::BpfWalk ? 100 : 20;
    for (int pass = 0; pass <= passes; ++pass) {
        if (pass == passes) {
            forker.command('!');
            forker.awaitEnd();
        }
        const auto rows = source->readProcesses(ProcessFields::All);
        ASSERT_TRUE(
            std::adjacent_find(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.pid >= b.pid; })
            == rows.end())
            << "in order, and each once";
        const auto childrenOf = [&](pid_t parent) {
            return std::count_if(rows.begin(), rows.end(), [&](const auto& each) { return each.parentPid == parent; });
        };
        ASSERT_EQ(childrenOf(::getpid()), 20 + 1) << "pass " << pass;
        ASSERT_TRUE(pass < passes || childrenOf(forker.pid()) == 0) << "they leave nothing behind";
    }
}

/// What a child did by its own account.
struct Account {
    double cpuTime = 0;
    long voluntarySwitches = 0;
};

Account ownAccount()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return {.cpuTime = ownCpuTime(), .voluntarySwitches = usage.ru_nvcsw};
}

TEST_P(LiveProcesses, CpuMemoryAndSwitchesAgreeWithTheProcessItself)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer's shadow memory and thread are in the child's figures";
#endif
    constexpr std::size_t size = 64 << 20;
    const Child child([](const Child::Pipes& pipes) {
        pipes.answer(ownAccount());
        for (char command = pipes.command(); command != 0; command = pipes.command()) {
            if (command == 'p') { // the wait for it was a switch
                pipes.answer('!');
                continue;
            }
            spinFor(0.5);
            void* memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            std::memset(memory, 1, size);
            pipes.answer(ownAccount());
        }
    });
    const Account before = child.answer<Account>().value();
    awaitBlocked(child.pid());
    const ProcessRecord first = *row(child.pid());
    constexpr unsigned waits = 50;
    for (unsigned i = 0; i < waits; ++i) {
        child.ask('p');
        awaitBlocked(child.pid()); // on a busy machine the next command would come before it waits
    }
    const Account after = child.ask<Account>('w');
    awaitBlocked(child.pid());
    const ProcessRecord second = *row(child.pid());

    expectCpuTime(second, after.cpuTime);
    EXPECT_NEAR(static_cast<double>(second.anonymous - first.anonymous), size, 0.03 * size);
    EXPECT_NEAR(static_cast<double>(second.physFootprint - first.physFootprint), size, 0.03 * size);
    EXPECT_NEAR(static_cast<double>(second.idleWakeups - first.idleWakeups),
        static_cast<double>(after.voluntarySwitches - before.voluntarySwitches), 3);
    EXPECT_GE(second.idleWakeups - first.idleWakeups, waits / 2) << "or nothing was compared";
}

TEST_P(LiveProcesses, ThreadsCountWhetherTheyLiveOrEnded)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer allows no threads in a child";
#endif
    const Child child([](const Child::Pipes& pipes) {
        for (std::vector<std::jthread> ended; ended.size() < 20;) {
            ended.emplace_back([] { spinFor(0.005); });
        }
        std::atomic<int> waiting = 0;
        std::atomic<bool> through = false;
        std::vector<std::jthread> living;
        while (living.size() < 20) {
            living.emplace_back([&] {
                spinFor(0.005);
                ++waiting;
                through.wait(false);
            });
        }
        while (waiting < 20) {
            spinFor(0.01);
        }
        pipes.answer('!');
        pipes.command();
        pipes.answer(ownAccount());
        pipes.command();
        through = true;
        through.notify_all();
    });
    ASSERT_TRUE(child.answer());
    for (const auto& thread : std::filesystem::directory_iterator(fmt::format("/proc/{}/task", child.pid()))) {
        awaitBlocked(std::stoi(thread.path().filename()));
    }
    const Account account = child.ask<Account>('a');
    awaitBlocked(child.pid());
    const ProcessRecord* many = row(child.pid());
    ASSERT_TRUE(many);
    expectCpuTime(*many, account.cpuTime);
    if (source->method() == "bpf") { // /proc has those of the main thread only
        EXPECT_NEAR(static_cast<double>(many->idleWakeups), static_cast<double>(account.voluntarySwitches), 3);
        EXPECT_GE(many->idleWakeups, 20U);
    }
}

/// A folder on a disk that the kernel accounts to processes; memory file systems and overlays have none.
std::optional<std::filesystem::path> accountedFolder()
{
    constexpr std::array notAccounted = {0x01021994L, 0x858458f6L, 0x794c7630L}; // tmpfs, ramfs, overlayfs
    for (const char* folder : {MERIDAL_BUILD_DIR, "/var/tmp", "/tmp"}) {
        struct statfs system { };
        if (::statfs(folder, &system) == 0 && ::access(folder, W_OK) == 0
            && std::find(notAccounted.begin(), notAccounted.end(), static_cast<long>(system.f_type))
                == notAccounted.end()) {
            return folder;
        }
    }
    return std::nullopt;
}

TEST_P(LiveProcesses, BytesWrittenAgreeWithWhatWasWritten)
{
    constexpr std::size_t size = 8 << 20;
    const auto folder = accountedFolder();
    if (!folder) {
        GTEST_SKIP() << "no file system on a disk at hand";
    }
    const std::string path = (*folder / fmt::format("written-by-test-{}", ::getpid())).string();
    const Child child([&](const Child::Pipes& pipes) {
        const std::string block(size, 'x');
        pipes.answer('!');
        while (pipes.command() == 'w') {
            const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            const bool done = ::write(file, block.data(), size) == static_cast<ssize_t>(size) && ::fsync(file) == 0;
            ::unlink(path.c_str());
            pipes.answer(done ? '+' : '-');
        }
    });
    ASSERT_TRUE(child.answer());
    const std::uint64_t before = row(child.pid())->diskBytesWritten;
    ASSERT_EQ(child.ask('w'), '+');
    const std::uint64_t after = row(child.pid())->diskBytesWritten;
    const std::string text = RootFolder("/").read(fmt::format("proc/{}/io", child.pid())).value_or("");
    if (const auto io = proc::parseIo(text)) { // the child rests: nothing may be missing
        EXPECT_EQ(after, io->writeBytes - io->cancelledWriteBytes);
        EXPECT_EQ(row(child.pid())->diskBytesRead, io->readBytes);
    }
    EXPECT_NEAR(static_cast<double>(after - before), size, 0.03 * size);
}

/// Does something, so that counters of every group move.
void work(std::vector<std::string>& kept)
{
    spinFor(0.002);
    kept.emplace_back(1 << 18, 'x');
    if (kept.size() % 3 == 0) {
        ::prctl(PR_SET_NAME, fmt::format("worked {}", kept.size()).c_str());
    }
}

/// All that a table says of this process's children, each in a line.
std::vector<std::string> childrenIn(ProcessSource& source)
{
    std::vector<std::string> lines;
    for (const ProcessRecord& of : source.readProcesses(ProcessFields::All)) {
        if (of.parentPid == ::getpid()) {
            lines.push_back(fmt::format("{} {} {} {} {} {} {} {} {} {} {} {} {}", of.pid, static_cast<int>(of.status),
                static_cast<int>(of.present), of.startIdentity, of.name, of.cpuTime, of.physFootprint, of.anonymous,
                of.compressed, of.residentSize, of.diskBytesRead, of.diskBytesWritten, of.idleWakeups));
        }
    }
    return lines;
}

struct LiveProcTable : testing::TestWithParam<bool> { };

INSTANTIATE_TEST_SUITE_P(RunTimes, LiveProcTable, testing::Bool(),
    [](const auto& each) { return each.param ? "AskedAtOnce" : "AskedByFile"; });

TEST_P(LiveProcTable, RowsTakenOverEqualRowsRead)
{
    const auto limitations = std::make_shared<Limitations>();
    ProcProcessOptions options;
    if (GetParam()) {
        const std::shared_ptr<TaskStatistics> statistics = TaskStatistics::open();
        if (!statistics) {
            GTEST_SKIP() << "the kernel tells no statistics of tasks: it takes CAP_NET_ADMIN outside of all containers";
        }
        options.runTimes = [statistics](auto pids, auto& sums) { return statistics->read(pids, sums); };
    }
    ProcProcessSource source("/", limitations, options);
    constexpr int children = 24;
    constexpr int rounds = 40;
    ProcProcessSource plain("/", limitations, {.skipUnchanged = false, .only = {}});
    const Crowd crowd = crowdOf(children, [](const Child::Pipes& pipes) {
        std::vector<std::string> kept;
        while (pipes.command() == 'w') {
            work(kept);
            pipes.answer('!');
        }
    });
    std::mt19937 random(7);
    std::size_t takenOver = 0;
    for (int round = 0; round < rounds; ++round) {
        for (const auto& child : crowd) {
            if (random() % 4 == 0) {
                child->ask('w');
            }
            awaitBlocked(child->pid());
        }
        // A thread counts as blocked a moment before its switch is counted: it may need a second look. A row taken over
        // wrongly would stay wrong.
        bool agree = false;
        for (int look = 0; look < 3 && !agree; ++look) {
            const auto skipping = childrenIn(source);
            agree = skipping == childrenIn(plain);
        }
        EXPECT_TRUE(agree) << "round " << round;
        takenOver += source.takenOver();
    }
    EXPECT_GT(takenOver, static_cast<std::size_t>(children)) << "or nothing was compared";
}

TEST(LiveTaskStatistics, TellOfEachThreadAndOfNobodyGone)
{
    const auto statistics = TaskStatistics::open();
    if (!statistics) {
        GTEST_SKIP() << "the kernel tells no statistics of tasks: it takes CAP_NET_ADMIN outside of all containers";
    }
    Child gone([](const Child::Pipes&) {});
    gone.reap();
    std::vector<std::int32_t> pids(100, 1); // more than one question holds
    pids[0] = gone.pid();
    pids[99] = ::getpid();
    std::vector<proc::Schedstat> sums;
    ASSERT_TRUE(statistics->read(pids, sums));
    const std::uint64_t before = sums[99].runTime;
    std::promise<void> spun;
    std::promise<void> looked;
    std::thread other([&] {
        spinFor(0.05);
        spun.set_value();
        looked.get_future().wait();
    });
    spun.get_future().wait();
    EXPECT_TRUE(statistics->read(pids, sums));
    looked.set_value();
    other.join();
    EXPECT_EQ(sums[0], proc::Schedstat{});
    EXPECT_GT(sums[1].slices, 0U);
    EXPECT_GE(sums[99].runTime, before + 40'000'000);
}

} // namespace
} // namespace meridal
