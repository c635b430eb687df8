#include "collectors/process/TrafficCounterCollector.h"
#include "collectors/process/NetworkStatisticsStatCollector.h"
#include "collectors/process/PacketStatCollector.h"
#include "daemon/CaptureKeeper.h"
#include "daemon/CollectorPorts.h"
#include "tests/process/ProcessFixture.h"

#include <gtest/gtest.h>

namespace meridal::test {
namespace {

class TrafficCounterCollectorTest : public ProcessFixture {
protected:
    TrafficCounterCollectorTest()
    {
        set(1, 0);
        set(42);
        set(43);
        update();
        counting().refusal.reset();
    }
    FakeTrafficCounters& counting() { return machine.trafficCounters(); }
    /// Counts one interval; started at the first.
    void process()
    {
        if (counting().begun == 0) {
            ASSERT_TRUE(counters.start());
        }
        counters.process();
    }
    /// What the next reading tells of a process.
    void counted(std::int32_t pid, std::uint64_t received, std::uint64_t sent, std::int32_t parent = 1,
        std::uint64_t startIdentity = 0)
    {
        counting().next.counts.push_back({.pid = pid,
            .parentPid = parent,
            .startIdentity = startIdentity,
            .bytesReceived = received,
            .bytesSent = sent,
            .packetsReceived = received > 0 ? 1U : 0U,
            .packetsSent = sent > 0 ? 1U : 0U});
    }
    void crossed(std::uint64_t received, std::uint64_t sent)
    {
        counting().next.interfaceBytesReceived = received;
        counting().next.interfaceBytesSent = sent;
    }

    TrafficCounterCollector counters{machine.context, collector()};
    PacketStatCollector packets{machine.context, collector()};
    NetworkStatisticsStatCollector statistics{machine.context, collector()};
};

TEST_F(TrafficCounterCollectorTest, FiguresAreTheBytesOfOneIntervalAndTheSumsClose)
{
    counted(42, 1000, 300);
    counted(42, 500, 0);
    counted(0, 80, 0);
    crossed(2000, 400);
    process();
    EXPECT_THAT(traffic(42), are({1500, 300}));
    EXPECT_EQ(item(42).networkDownloadTime(), machine.runtime.wallTime());
    EXPECT_EQ(counters.latest().unattributed.download, 80) << "of processes that found no room";
    EXPECT_EQ(counters.latest().kernel.download, 2000 - 1580);
    EXPECT_EQ(counters.latest().kernel.upload, 100);
    EXPECT_EQ(counters.latest().kernel.linkBytes, 2400 - 1880 - 4 * 14) << "less an Ethernet header for each packet";
    process();
    EXPECT_EQ(item(42).networkDownload(), 0);
    EXPECT_EQ(counters.total().processes.download, 1500);
    EXPECT_EQ(counters.total().frames, 4U);
}

TEST_F(TrafficCounterCollectorTest, LastBytesOfAnEndedProcessCountForItsParent)
{
    counted(4711, 0, 500, 43);
    counted(4713, 0, 7, 4711); // a child of that one
    counted(4712, 0, 60, 1);   // orphans are nobody's: pid 1 did not send that
    process();
    EXPECT_EQ(item(43).networkUpload(), 507);
    EXPECT_EQ(item(1).networkUpload(), 0);
    EXPECT_EQ(counters.latest().unattributed.upload, 60);
}

TEST_F(TrafficCounterCollectorTest, WhoTookOverThePidOfAnEndedProcessDoesNotGetItsBytes)
{
    counted(43, 0, 500, 42, 42); // of a process before the one that has the pid now
    counted(42, 0, 60, 43, 41);
    process();
    EXPECT_EQ(item(43).networkUpload(), 0);
    EXPECT_EQ(item(42).networkUpload(), 500) << "the parent is older than its child";
    EXPECT_EQ(counters.latest().unattributed.upload, 60) << "both pids are others' by now";
}

TEST_F(TrafficCounterCollectorTest, NetworksOfTheirOwnAreNoPartOfTheSum)
{
    counted(42, 1000, 0);
    counting().next.counts.back().isElsewhere = true;
    crossed(1000, 1000); // forwarded, in and out
    process();
    EXPECT_EQ(item(42).networkDownload(), 1000);
    EXPECT_EQ(counters.elsewhere().download, 1000);
    EXPECT_EQ(counters.latest().processes.download, 0);
    EXPECT_EQ(counters.latest().kernel.download, 1000);
}

TEST_F(TrafficCounterCollectorTest, WhatIsCountedOnDifferentSidesOfAReadingCountsOnce)
{
    counted(42, 1000, 0);
    // Of 1000 some were still on their way up; never negative.
    for (const auto& [crossing, kernel] : {std::pair(600, 0), std::pair(400, 0), std::pair(10, 10)}) {
        crossed(static_cast<std::uint64_t>(crossing), 0);
        process();
        EXPECT_EQ(counters.latest().kernel.download, kernel) << crossing;
    }
}

TEST_F(TrafficCounterCollectorTest, WhatNoInterfaceEverCarriedDoesNotHideTheKernelsTrafficForEver)
{
    for (int flood = 0; flood < 10; ++flood) { // a queue drops all that the process sends
        counted(42, 0, 1000);
        crossed(0, 0);
        process();
    }
    double kernel = 0;
    for (int reading = 0; reading < 10; ++reading) {
        crossed(0, 500);
        process();
        kernel += counters.latest().kernel.upload;
    }
    EXPECT_EQ(kernel, 5000 - 1000) << "what one reading held may still be on its way";
}

TEST_F(TrafficCounterCollectorTest, TheKeeperTakesTheFirstSourceThatWorks)
{
    CaptureKeeper keeper(machine.context, {counters, packets, statistics});
    CollectorPorts ports;
    keeper.plugInto(ports);
    ports.startCapture();
    ports.startCapture();
    EXPECT_EQ(counting().begun, 1) << "a second client does not start it over";
    EXPECT_EQ(keeper.describe()["source"], "bpf");
    EXPECT_EQ(keeper.describe()["method"], "fake");
    EXPECT_EQ(machine.packetTap().begun, 0);
    counted(42, 1000, 0);
    crossed(1014, 0);
    ports.processCapture();
    EXPECT_EQ(keeper.latestShares()["attributed"]["d"], 1000);
    EXPECT_EQ(keeper.latestShares()["kernel"]["d"], 14);
    EXPECT_EQ(keeper.describe()["processBytes"], 1014);
    ports.stopCapture();
    EXPECT_EQ(counting().running, 0);
    EXPECT_EQ(keeper.describe()["source"], "none");

    counting().refusal = {ErrorCode::NotPermitted, "locked down"};
    ports.startCapture();
    EXPECT_EQ(keeper.describe()["source"], "capture");
    EXPECT_NE(machine.host.limitations->all().at("traffic-counters").find("locked down"), std::string::npos);
    counting().refusal.reset();
    ports.stopCapture();
    ports.startCapture();
    EXPECT_FALSE(machine.host.limitations->all().contains("traffic-counters"));
}

TEST_F(TrafficCounterCollectorTest, ASourceThatWasChosenStandsForItself)
{
    const auto sourceFor = [this](TrafficSource source) {
        CaptureKeeper keeper(machine.context, {counters, packets, statistics}, source);
        CollectorPorts ports;
        keeper.plugInto(ports);
        ports.startCapture();
        ports.processCapture();
        return keeper.describe()["source"].get<std::string>();
    };
    EXPECT_EQ(sourceFor(TrafficSource::Pcap), "capture");
    EXPECT_EQ(sourceFor(TrafficSource::Sockets), "counters");
    EXPECT_TRUE(machine.host.limitations->all().empty()) << "as was wished";
    counting().refusal = {ErrorCode::NotFound, "no such thing"};
    EXPECT_EQ(sourceFor(TrafficSource::Bpf), "none");
    EXPECT_TRUE(machine.host.limitations->all().contains("traffic-counters"));
}

} // namespace
} // namespace meridal::test
