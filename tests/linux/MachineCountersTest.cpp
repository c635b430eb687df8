// SPDX-License-Identifier: Apache-2.0
// The machine's own figures, from files as Linux 6.1 and this kernel write them.

#include "platform/linux/machine/LinuxMachineCounters.h"
#include "platform/linux/machine/MachineParsers.h"
#include "tests/support/TemporaryTree.h"
#include "tests/support/VirtualRuntime.h"

#include <gtest/gtest.h>

#include <ctime>
#include <fmt/format.h>
#include <unistd.h>

namespace meridal {
namespace {

constexpr const char* stat = "cpu  2254900 1833012 603477 1193016 6237 3 11644 95858 7 0\n"
                             "cpu0 1146656 916302 294591 584698 4022 1 5021 47898 0 0\n"
                             "cpu12 1108244 916710 308885 608318 2214 2 6623 47959 0 0\n"
                             "intr 20411231 0 0 17\nctxt 42225126\nbtime 1795318354\nprocesses 1070057\n"
                             "procs_running 13\nprocs_blocked 2\nsoftirq 103651906 0 1443787\n";
constexpr const char* meminfo =
    "MemTotal:       24682416 kB\nMemFree:        16260164 kB\nMemAvailable:   22018628 kB\n"
    "Buffers:           48908 kB\nCached:          6046632 kB\nSwapCached:            4 kB\n"
    "SwapTotal:         10240 kB\nSwapFree:           6144 kB\nZswap:               8 kB\n"
    "Dirty:             21504 kB\nWriteback:            12 kB\nShmem:             26332 kB\n"
    "SReclaimable:     303008 kB\nSUnreclaim:        49860 kB\nHugePages_Total:       2\nHugePages_Free:        1\n"
    "Zswapped:             24 kB\nHugepagesize:       2048 kB\nHugetlb:            4096 kB\n";

struct MachineCountersTest : testing::Test {
    const std::uint64_t tick = 1'000'000'000 / static_cast<std::uint64_t>(::sysconf(_SC_CLK_TCK));
    test::TemporaryTree tree{{"proc/stat", stat}, {"proc/loadavg", "0.52 1.58 12.59 13/220 1070057\n"},
        {"proc/meminfo", meminfo}, {"proc/vmstat", "nr_free_pages 1\npswpin 3\npswpout 5\noom_kill 2\noom_kill_x 9\n"},
        {"proc/pressure/cpu", "some avg10=99.50 avg60=99.43 avg300=98.97 total=17480002521\n"},
        {"proc/pressure/io",
            "some avg10=0.00 avg60=0.00 avg300=0.00 total=162601488\n"
            "full avg10=0.00 avg60=0.00 avg300=0.00 total=35110798\n"},
        {"sys/devices/system/cpu/cpu12/cpufreq/scaling_cur_freq", "2400000\n"}};
    VirtualRuntime runtime;
    LinuxMachineCounters counters{runtime, tree.root()};
};

TEST_F(MachineCountersTest, ProcessorsLoadAndTasksAreThoseOfTheFiles)
{
    const ProcessorReading* reading = counters.processors();
    ASSERT_TRUE(reading);
    EXPECT_EQ(reading->all,
        (ProcessorTimes{.userNs = 2254900 * tick,
            .niceNs = 1833012 * tick,
            .systemNs = 603477 * tick,
            .idleNs = 1193016 * tick,
            .ioWaitNs = 6237 * tick,
            .interruptNs = 11647 * tick,
            .stealNs = 95858 * tick}));
    ASSERT_EQ(reading->each.size(), 2U);
    EXPECT_EQ(reading->each[1].number, 12);
    EXPECT_EQ(reading->each[1].times.stealNs, 47959 * tick);
    EXPECT_EQ(counters.frequencyHz(0), std::nullopt);
    EXPECT_EQ(counters.frequencyHz(12), 2'400'000'000U);
    EXPECT_EQ(reading->load1Minute, 0.52);
    EXPECT_EQ(reading->load15Minutes, 12.59);
    EXPECT_EQ(reading->runnableTasks, 13U);
    EXPECT_EQ(reading->blockedTasks, 2U);
    EXPECT_EQ(reading->contextSwitches, 42225126U);
    EXPECT_EQ(reading->interrupts, 20411231U);
    EXPECT_EQ(reading->forks, 1070057U);

    tree.write(
        "proc/stat", "cpu  1 2 3 4\ncpu0 1 2 3 4\n"); // one went offline; a container's file has no more than this
    reading = counters.processors();
    EXPECT_EQ(reading->each.size(), 1U);
    EXPECT_EQ(reading->all.ioWaitNs, std::nullopt) << "absent, not zero";
    tree.write("proc/stat", "cpu\n");
    EXPECT_FALSE(counters.processors());
}

TEST_F(MachineCountersTest, MemoryAndPressureSayWhatIsAbsent)
{
    constexpr std::uint64_t kilobyte = 1024;
    const auto page = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    const MemoryReading* memory = counters.memory();
    ASSERT_TRUE(memory);
    EXPECT_EQ(*memory,
        (MemoryReading{.total = 24682416 * kilobyte,
            .available = 22018628 * kilobyte,
            .free = 16260164 * kilobyte,
            .buffers = 48908 * kilobyte,
            .cached = 6046632 * kilobyte,
            .shared = 26332 * kilobyte,
            .slabReclaimable = 303008 * kilobyte,
            .slabUnreclaimable = 49860 * kilobyte,
            .dirty = 21504 * kilobyte,
            .writeback = 12 * kilobyte,
            .compressed = 8 * kilobyte,
            .compressedContents = 24 * kilobyte,
            .hugePages = 4096 * kilobyte,
            .hugePagesFree = 2048 * kilobyte,
            .swapTotal = 10240 * kilobyte,
            .swapUsed = 4096 * kilobyte,
            .swappedIn = 3 * page,
            .swappedOut = 5 * page,
            .outOfMemoryKills = 2}));
    const PressureReading* pressure = counters.pressure();
    ASSERT_TRUE(pressure);
    EXPECT_EQ(pressure->processor, (Stall{.someNs = 17480002521000, .fullNs = {}}));
    EXPECT_EQ(pressure->memory, std::nullopt);
    EXPECT_EQ(pressure->storage, (Stall{.someNs = 162601488000, .fullNs = 35110798000}));

    tree.write("proc/meminfo", "MemTotal: 1000 kB\nMemFree: 100 kB\nCached: 50 kB\n");
    EXPECT_EQ(counters.memory()->available, 150 * kilobyte) << "of an old kernel";
    EXPECT_EQ(counters.memory()->buffers, std::nullopt);
    tree.remove("proc/pressure");
    EXPECT_FALSE(LinuxMachineCounters(runtime, tree.root()).pressure());
}

TEST_F(MachineCountersTest, BlockDevicesAreSortedByKindAndToldApart)
{
    const auto line = [](int minor, const char* name) {
        return fmt::format(
            "254 {:7} {} 158915 30925 15710354 67662 1459694 391507 166567672 1193485 3 439612 1444967\n", minor, name);
    };
    tree.write("proc/diskstats",
        line(0, "vda") + line(1, "vda1") + "   7 0 loop0 0 0\n" + line(9, "dm-0") + line(10, "zram0"));
    tree.write("sys/class/block/vda1/partition", "1\n");
    tree.write("sys/class/block/vda/diskseq", "9\n");
    const std::vector<BlockDeviceRecord>* devices = counters.blockDevices();
    ASSERT_TRUE(devices);
    ASSERT_EQ(devices->size(), 4U) << "a line of another shape is passed over";
    EXPECT_EQ((*devices)[0],
        (BlockDeviceRecord{.name = "vda",
            .kind = BlockDeviceKind::Disk,
            .identity = 9,
            .reads = 158915,
            .readBytes = 15710354ULL * 512,
            .readNs = 67662'000'000,
            .writes = 1459694,
            .writtenBytes = 166567672ULL * 512,
            .writeNs = 1193485'000'000,
            .underWay = 3,
            .busyNs = 439612'000'000}));
    EXPECT_EQ((*devices)[1].kind, BlockDeviceKind::Partition);
    EXPECT_EQ((*devices)[2].kind, BlockDeviceKind::Mapped);
    EXPECT_EQ((*devices)[3].kind, BlockDeviceKind::Memory);
    tree.write("sys/block/zram0/mm_stat", " 4096 74 12288 0 12288 0 0 0 0\n");
    EXPECT_EQ(counters.memory()->ramDiskContents, 4096U);
    EXPECT_EQ(counters.memory()->ramDisks, 12288U);
    const std::uint64_t first = (*devices)[3].identity;
    EXPECT_NE((*devices)[2].identity, first);
    tree.write("proc/diskstats", line(0, "vda"));
    EXPECT_EQ(counters.blockDevices()->size(), 1U);
    tree.write("proc/diskstats", line(10, "zram0"));
    EXPECT_NE(counters.blockDevices()->front().identity, first) << "it was away";
}

TEST(LiveMachineCounters, AgreeWithTheKernelsOtherAnswers)
{
    VirtualRuntime runtime;
    LinuxMachineCounters counters(runtime, "/");
    const ProcessorReading* processors = counters.processors();
    ASSERT_TRUE(processors);
    EXPECT_EQ(processors->each.size(), static_cast<std::size_t>(::sysconf(_SC_NPROCESSORS_ONLN)));
    const ProcessorTimes& all = processors->all;
    timespec now{};
    ::clock_gettime(CLOCK_BOOTTIME, &now);
    const auto total = all.userNs + all.niceNs + all.systemNs + all.idleNs + all.ioWaitNs.value_or(0)
        + all.interruptNs.value_or(0) + all.stealNs.value_or(0);
    const double elapsed = static_cast<double>(now.tv_sec) * static_cast<double>(processors->each.size());
    EXPECT_LT(static_cast<double>(total) / 1e9, elapsed * 1.05) << "of so many processors since the boot";
    EXPECT_EQ(counters.memory()->total / 1024,
        static_cast<std::uint64_t>(::sysconf(_SC_PHYS_PAGES)) * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE))
            / 1024);
}

} // namespace
} // namespace meridal
