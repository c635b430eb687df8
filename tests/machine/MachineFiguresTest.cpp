// SPDX-License-Identifier: Apache-2.0
#include "collectors/machine/MachineFigures.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace meridal {
namespace {

constexpr std::uint64_t second = 1'000'000'000; // ns

TEST(ProcessorShares, AddUpToAHundredWhateverTheMachineTells)
{
    const ProcessorTimes before{.userNs = 10 * second,
        .systemNs = 5 * second,
        .idleNs = 100 * second,
        .ioWaitNs = 3 * second,
        .interruptNs = second,
        .stealNs = 0};
    ProcessorTimes now = before;
    now.userNs += 3 * second;
    now.systemNs += second;
    now.idleNs += 4 * second;
    now.ioWaitNs = *before.ioWaitNs + second;
    now.stealNs = second;
    const auto shares = processorShares(before, now);
    EXPECT_EQ(
        shares, (ProcessorShares{.user = 30, .system = 10, .idle = 40, .ioWait = 10, .interrupt = 0, .steal = 10}));
    EXPECT_EQ(shares->busy(), 50);
    EXPECT_EQ(processorShares({.userNs = 0, .idleNs = 0}, {.userNs = second, .idleNs = 3 * second}),
        (ProcessorShares{.user = 25, .idle = 75}))
        << "absent is not zero";

    now.ioWaitNs = second; // as Linux may estimate it
    EXPECT_EQ(processorShares(before, now)->ioWait, 0);
    EXPECT_EQ(processorShares(now, now), std::nullopt) << "no time passed";
    now.userNs = 0;
    EXPECT_EQ(processorShares(before, now), std::nullopt) << "started anew";
}

TEST(MachineRates, CountersThatRestartOrAreAnothersGiveNoFigure)
{
    const Timed<MemoryReading> before{{.swappedIn = 4096, .swappedOut = 8192}, 100};
    const SwapRates rates = swapRates(before, {{.swappedIn = 0, .swappedOut = 16384}, 104});
    EXPECT_EQ(rates.inBytes, std::nullopt);
    EXPECT_EQ(rates.outBytes, 2048);
    EXPECT_EQ(swapRates(before, {before.reading, 100}).outBytes, std::nullopt) << "no time passed";

    const BlockDeviceRecord disk{
        .name = "sda", .identity = 1, .reads = 10, .readBytes = 1024, .readNs = second, .writes = 7, .busyNs = second};
    BlockDeviceRecord later = disk;
    later.reads += 4;
    later.readBytes += 8192;
    later.readNs += 2 * second;
    *later.busyNs += 3 * second; // by a tick more than passed
    const BlockDeviceRates figures = blockDeviceRates(disk, later, 2);
    EXPECT_EQ(figures.reads, 2);
    EXPECT_EQ(figures.readBytes, 4096);
    EXPECT_EQ(figures.readMs, 500);
    EXPECT_EQ(figures.writeMs, std::nullopt) << "none was written";
    EXPECT_EQ(figures.writes, 0);
    EXPECT_EQ(figures.busy, 100);
    EXPECT_EQ(figures.queue, 1);
    later.identity = 2;
    EXPECT_EQ(blockDeviceRates(disk, later, 2).reads, std::nullopt) << "another disk under its name";

    EXPECT_EQ(stallShares(Stall{.someNs = 0, .fullNs = 0}, Stall{.someNs = second, .fullNs = {}}, 4).some, 25);
    EXPECT_EQ(
        stallShares(Stall{.someNs = 0, .fullNs = 0}, Stall{.someNs = second, .fullNs = {}}, 4).full, std::nullopt);
    EXPECT_EQ(stallShares({}, Stall{}, 4).some, std::nullopt);
}

TEST(InterfaceRates, CountersThatBeginAnewGiveNoFigure)
{
    InterfaceRecord before;
    before.index = 2;
    before.hasCounters = true;
    before.bytesReceived = 1000;
    before.bytesSent = 500;
    before.packetsSent = 5;
    before.errorsReceived = 1;
    before.dropsSent = 3;
    InterfaceRecord now = before;
    now.bytesReceived = 5000;
    now.packetsSent = 9;
    now.errorsSent = 2;
    const InterfaceRates rates = interfaceRates(before, now, 2);
    EXPECT_EQ(rates.receivedBytes, 2000);
    EXPECT_EQ(rates.sentBytes, 0);
    EXPECT_EQ(rates.sentPackets, 2);
    EXPECT_EQ(rates.errors, 1);
    EXPECT_EQ(rates.dropped, 0);
    EXPECT_EQ(interfaceRates(before, now, 0).receivedBytes, std::nullopt);
    EXPECT_EQ(interfaceRates(now, before, 2).sentBytes, std::nullopt) << "one of them went back";
    now.index = 3;
    EXPECT_EQ(interfaceRates(before, now, 2).receivedBytes, std::nullopt) << "another one under its name";
    EXPECT_EQ(awakeShare({second, 0}, {3 * second, 8}), 75);
    EXPECT_EQ(awakeShare({second, 0}, {0, 8}), std::nullopt);
}

} // namespace
} // namespace meridal
