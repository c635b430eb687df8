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

#include <chrono>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <grp.h>
#include <unistd.h>

namespace meridal::test {
namespace {

constexpr uid_t stormUser = 54'321; // nobody else's

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
    void feed()
    {
        machine.runtime.advance(10);
        collector->update();
        accumulator->update();
    }
    GroupSums ofStorm() const
    {
        GroupSums sums;
        for (const GroupTotals& each : accumulator->totals()) {
            if (each.owner == stormUser || (isUnit && each.identity.starts_with("unit:meridal-test-"))) {
                sums += each.sums;
            }
        }
        return sums;
    }

    static constexpr std::uint32_t everything =
        mask(RequestKey::Cpu) | mask(RequestKey::Memory) | mask(RequestKey::Disk) | mask(RequestKey::Energy);
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
    Child shell([this](const Child::Pipes& pipes) {
        group.enter();
        if (::setgroups(0, nullptr) != 0 || ::setresgid(stormUser, stormUser, stormUser) != 0
            || ::setresuid(stormUser, stormUser, stormUser) != 0) {
            return;
        }
        pipes.answer('r');
        pipes.command();
        const std::string loop = fmt::format("i=0; while [ $i -lt {} ]; do /bin/true; (/bin/ls / >/dev/null); "
                                             "i=$((i+1)); done; echo d; read end",
            processes / 3);
        ::dup2(pipes.commands, STDIN_FILENO);
        ::dup2(pipes.answers, STDOUT_FILENO);
        ::execl("/bin/sh", "sh", "-c", loop.c_str(), nullptr);
    });
    ASSERT_TRUE(shell.answer());
    feed();
    const double before = group.cpuSeconds();
    shell.command('\n');
    const bool isBpf = accumulator->knowsEnded();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(3);
    while (isBpf && ofStorm().processesEnded < processes * 2 / 3 && std::chrono::steady_clock::now() < deadline) {
        accumulator->update(); // as often as can be: one that ends in just that instant is not lost either
    }
    ASSERT_TRUE(shell.answer());
    feed();
    const double used = group.cpuSeconds() - before;
    const double told = ofStorm().cpuSeconds();
    RecordProperty("percent", fmt::format("{:.2f}", 100 * told / used));
    EXPECT_GT(told, used * (isBpf ? 0.97 : 0.3)) << told << " of " << used;
    EXPECT_LT(told, used * (isBpf ? 1.03 : 1.7)) << told << " of " << used;
    if (isBpf) {
        EXPECT_GE(ofStorm().processesEnded, static_cast<std::uint64_t>(processes * 2 / 3));
    }
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
    const std::string padding(64 * 1024 - 4, 'x'); // the name lies across two readings
    const TemporaryTree with{{"sys/kernel/btf/vmlinux", padding + std::string("\0irqtime\0rq", 11)}};
    const TemporaryTree without{{"sys/kernel/btf/vmlinux", padding + std::string("\0irqtimes\0rq", 12)}};
    EXPECT_TRUE(proc::countsInterruptsApart(with.root()));
    EXPECT_FALSE(proc::countsInterruptsApart(without.root()));
    EXPECT_TRUE(proc::countsInterruptsApart("/nowhere"));
}

} // namespace
} // namespace meridal::test
