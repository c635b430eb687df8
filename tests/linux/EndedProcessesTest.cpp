// SPDX-License-Identifier: Apache-2.0
// What processes have used that lived between two passes: told by the kernel that runs the tests, against its own account of
// a control group.

#include "collectors/process/GroupAccumulator.h"
#include "platform/linux/kernel/RootFolder.h"
#include "platform/linux/machine/LinuxMachineCounters.h"
#include "platform/linux/power/PowercapEnergy.h"
#include "platform/linux/processes/BpfProcessSource.h"
#include "platform/linux/processes/ProcFigures.h"
#include "platform/linux/processes/ProcProcessSource.h"
#include "platform/linux/processes/ProcVisibility.h"
#include "tests/linux/Child.h"
#include "tests/support/FakeHost.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <grp.h>
#include <linux/btf.h>
#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace meridal::test {
namespace {

/// Nobody else's, nor that of another run of this program.
const uid_t stormUser = 1'000'000'000 + static_cast<uid_t>(::getpid());

/// A control group of the test's own; its path is empty where none can be made.
struct OwnCgroup {
    OwnCgroup()
    {
        for (const char* mount : {"/sys/fs/cgroup/unified", "/sys/fs/cgroup"}) {
            if (std::filesystem::exists(std::string(mount) + "/cgroup.procs")) {
                path = fmt::format("{}/meridal-test-{}.service", mount, ::getpid());
                std::error_code failure;
                std::filesystem::create_directory(path, failure);
                path = failure ? std::filesystem::path() : path;
                return;
            }
        }
    }
    ~OwnCgroup()
    {
        std::error_code failure;
        std::filesystem::remove(path, failure);
    }
    double cpuSeconds() const
    {
        std::ifstream file(path / "cpu.stat");
        std::string name;
        double usage = 0;
        file >> name >> usage;
        return usage / 1e6;
    }
    void enter() const { std::ofstream(path / "cgroup.procs") << ::getpid() << std::flush; }
    std::filesystem::path path;
};

struct Storm : testing::TestWithParam<const char*> {
    void SetUp() override
    {
        auto& host = machine.host;
        const bool isBpf = GetParam() == std::string_view("bpf");
        if (isBpf) {
            auto reader = BpfProcessWalk::load(1024);
            if (!reader) { // before Linux 6.7
                reader = BpfProcessDump::load();
            }
            if (!reader) {
                GTEST_SKIP() << reader.error().message;
            }
            host.processes = std::make_unique<BpfProcessSource>(std::move(*reader), "/", host.limitations);
        } else {
            host.processes = std::make_unique<ProcProcessSource>("/", host.limitations);
        }
        host.processVisibility = std::make_unique<ProcVisibility>("/");
        host.machineCounters = std::make_unique<LinuxMachineCounters>(machine.runtime, "/");
        if (::geteuid() != 0 || group.path.empty()) {
            GTEST_SKIP() << "takes root and the unified hierarchy of control groups";
        }
        collector = std::make_unique<ProcessStatCollector>(machine.context);
        collector->setUpdateMask(everything);
        accumulator = std::make_unique<GroupAccumulator>(machine.context, *collector);
        if (isBpf && !accumulator->knowsEnded()) {
            GTEST_SKIP() << host.limitations->all()["ended-processes"];
        }
    }
    /// Runs this in a shell of the storm's own, once the test says so. It has the test's pipes to answer and to read from.
    Child startShell(const std::string& script) const
    {
        return Child([this, &script](const Child::Pipes& pipes) {
            group.enter();
            if (::setgroups(0, nullptr) != 0 || ::setresgid(stormUser, stormUser, stormUser) != 0
                || ::setresuid(stormUser, stormUser, stormUser) != 0) {
                return;
            }
            pipes.answer('r');
            pipes.command();
            ::dup2(pipes.commands, STDIN_FILENO);
            ::dup2(pipes.answers, STDOUT_FILENO);
            ::execl("/bin/sh", "sh", "-c", script.c_str(), nullptr);
        });
    }
    void feed()
    {
        machine.runtime.advance(10);
        collector->update();
        accumulator->update();
    }
    /// Until the kernel has let go of who has ended, as far as it ever tells.
    void awaitReleases()
    {
        constexpr int periods = 6; // of grace: the last of them are told one after they were let go of
        for (int i = 0; i < periods; ++i) {
            static_cast<void>(::syscall(SYS_membarrier, MEMBARRIER_CMD_GLOBAL, 0, 0));
            accumulator->update();
        }
    }
    GroupSums ofStorm() const
    {
        GroupSums sums;
        for (const GroupTotals& each : accumulator->totals()) {
            if (each.owner == stormUser
                || (isUnit && each.identity == fmt::format("unit:{}", group.path.filename().string()))) {
                sums += each.sums;
            }
        }
        return sums;
    }

    static constexpr std::uint32_t everything =
        mask(RequestKey::Cpu) | mask(RequestKey::Memory) | mask(RequestKey::Disk) | mask(RequestKey::Energy);
    /// Some virtual machines' own kernels run nobody's program while process 1 is the current one, and a release that falls into
    /// its time is never announced: up to nine of a thousand on a busy one, none where it sleeps.
    static constexpr double announced = 0.95;
    OwnCgroup group;
    bool isUnit = true;
    FakeMachine machine;
    std::unique_ptr<ProcessStatCollector> collector;
    std::unique_ptr<GroupAccumulator> accumulator;
};

/// A shell that starts one short process after another, none of which lives at a pass.
TEST_P(Storm, IsAttributed)
{
    constexpr int processes = 300;
    const std::string loop = fmt::format(
        "i=0; while [ $i -lt {} ]; do /bin/true; (/bin/ls / >/dev/null); i=$((i+1)); done; echo d; read end",
        processes / 3);
    const Child shell = startShell(loop);
    ASSERT_TRUE(shell.answer());
    feed();
    const double before = group.cpuSeconds();
    shell.command('\n');
    const bool isBpf = accumulator->knowsEnded();
    while (isBpf && !shell.hasAnswer(0)) {
        accumulator->update(); // as often as can be: one that ends in just that instant is not lost either
    }
    awaitReleases();
    ASSERT_TRUE(shell.answer());
    feed();
    const double used = group.cpuSeconds() - before;
    const double told = ofStorm().cpuSeconds();
    RecordProperty("percent", fmt::format("{:.2f}", 100 * told / used));
    EXPECT_GT(told, used * (isBpf ? announced : 0.3)) << told << " of " << used;
    EXPECT_LT(told, used * (isBpf ? 1.03 : 1.7)) << told << " of " << used;
    if (isBpf) {
        EXPECT_GE(ofStorm().processesEnded, static_cast<std::uint64_t>(processes * 2 / 3 * announced));
    }
}
/// One pass after another while a shell starts processes, turn by turn: some live at one, end in the midst of it, wait as zombies.
TEST_P(Storm, IsCountedOnceThoughPassesMeetSomeOfIt)
{
    constexpr std::uint64_t processes = 1000;
    constexpr std::uint64_t inTurn = 4;
    if (GetParam() != std::string_view("bpf")) {
        GTEST_SKIP() << "parents do not tell how many they have waited for";
    }
    const std::string loop =
        fmt::format("i=0; while [ $i -lt {} ]; do /bin/true & printf m; /bin/ls / >/dev/null & /bin/true; "
                    "printf m; /bin/true & wait; i=$((i+1)); done; printf d; read end",
            processes / inTurn);
    const Child shell = startShell(loop);
    ASSERT_TRUE(shell.answer());
    feed();
    const GroupSums before = ofStorm();
    const double usedBefore = group.cpuSeconds();
    shell.command('\n');
    int passes = 0;
    for (; shell.answer() == 'm'; ++passes) {
        feed();
    }
    awaitReleases();
    feed();
    const double used = group.cpuSeconds() - usedBefore;
    const GroupSums after = ofStorm();
    RecordProperty("passes", passes);
    const std::uint64_t ended = after.processesEnded - before.processesEnded;
    EXPECT_LE(ended, processes);
    EXPECT_GE(static_cast<double>(ended), processes * announced);
    EXPECT_EQ(after.processesStarted - before.processesStarted, ended);
    EXPECT_LT(after.cpuSeconds() - before.cpuSeconds(), used * 1.01);
    EXPECT_GT(after.cpuSeconds() - before.cpuSeconds(), used * announced);
}
INSTANTIATE_TEST_SUITE_P(By, Storm, testing::Values("bpf", "proc"), [](const auto& of) { return of.param; });

TEST(PowercapEnergy, AddsUpPackagesAcrossTheirLimits)
{
    const TemporaryTree tree{{"sys/class/powercap/intel-rapl:0/name", "package-0\n"},
        {"sys/class/powercap/intel-rapl:0/energy_uj", "9000000\n"},
        {"sys/class/powercap/intel-rapl:0/max_energy_range_uj", "10000000\n"},
        {"sys/class/powercap/intel-rapl:0:0/name", "core\n"}, {"sys/class/powercap/intel-rapl:0:0/energy_uj", "5\n"},
        {"sys/class/powercap/intel-rapl:1/name", "package-1\n"},
        {"sys/class/powercap/intel-rapl:1/energy_uj", "1000000\n"},
        {"sys/class/powercap/intel-rapl:1/max_energy_range_uj", "10000000\n"}};
    PowercapEnergy energy(tree.root());
    EXPECT_EQ(energy.joules(), 0.0);
    tree.write("sys/class/powercap/intel-rapl:0/energy_uj", "500000\n");
    tree.write("sys/class/powercap/intel-rapl:1/energy_uj", "3000000\n");
    EXPECT_DOUBLE_EQ(*energy.joules(), 1.5 + 2);
    EXPECT_EQ(PowercapEnergy("/nowhere").joules(), std::nullopt);
}

TEST(Interrupts, AreApartWhereTheKernelHasATypeForThem)
{
    btf_header header{}; // behind it 9 bytes of types, then the strings
    header.hdr_len = sizeof header;
    header.type_len = header.str_off = 9;
    const std::string types =
        std::string(reinterpret_cast<const char*>(&header), sizeof header) + std::string("\0irqtime\0", 9);
    const std::string padding(64 * 1024 - 4, 'x'); // the name lies across two readings
    const TemporaryTree with{{"sys/kernel/btf/vmlinux", types + padding + std::string("\0irqtime\0rq", 11)}};
    const TemporaryTree without{{"sys/kernel/btf/vmlinux", types + padding + std::string("\0irqtimes\0rq", 12)}};
    EXPECT_TRUE(proc::countsInterruptsApart(with.root()));
    EXPECT_FALSE(proc::countsInterruptsApart(without.root()));
    EXPECT_TRUE(proc::countsInterruptsApart("/nowhere"));
}

} // namespace
} // namespace meridal::test
