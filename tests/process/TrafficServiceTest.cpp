// SPDX-License-Identifier: Apache-2.0
// Which of the three ways to count traffic is taken, and what is told of it.

#include "daemon/TrafficService.h"
#include "collectors/process/NetworkStatisticsStatCollector.h"
#include "collectors/process/PacketStatCollector.h"
#include "collectors/process/TrafficCounterCollector.h"
#include "tests/process/ProcessFixture.h"
#include "tests/support/FrameBytes.h"

namespace meridal::test {
namespace {

class TrafficServiceTest : public ProcessFixture {
protected:
    TrafficServiceTest()
    {
        set(42);
        update();
    }
    void keep(TrafficSource chosen = TrafficSource::Auto)
    {
        service.emplace(machine.context, TrafficService::Collectors{counters, packets, statistics}, chosen);
    }
    Value used() { return service->describe()["source"]; }
    FakePacketTap& tap() { return machine.packetTap(); }
    FakeTrafficCounters& counting() { return machine.trafficCounters(); }
    /// Keeps it, and adds up what the record is told of.
    void record(TrafficSource chosen = TrafficSource::Auto, bool byCapture = false)
    {
        service.emplace(machine.context, TrafficService::Collectors{counters, packets, statistics}, chosen, byCapture);
        recorded = {};
        service->setFolded([this](const TrafficAccount& fold) {
            recorded += fold;
            byProcesses += traffic(42)[0];
        });
        service->startRecording();
    }
    void count(std::uint64_t bytes, std::uint64_t crossed)
    {
        TrafficCount one;
        one.process = {42, 42};
        one.bytesReceived = bytes;
        counting().next.counts = {one};
        counting().next.interfaceBytesReceived = crossed;
        service->process();
    }
    double shown() { return service->latestShares()["attributed"]["d"].get<double>(); }
    bool tells(const char* limitation) { return machine.host.limitations->all().contains(limitation); }
    void deliver(unsigned bytes)
    {
        const TappedFrame frame = tapped(42, FrameDirection::Received, bytes);
        tap().deliver({frame});
    }
    void changeNetwork() { machine.notifications.post("STAT_COLLECTION_NETWORK_SETUP_CHANGED", nullptr); }

    TrafficCounterCollector counters{machine.context, collector()};
    PacketStatCollector packets{machine.context, collector()};
    NetworkStatisticsStatCollector statistics{machine.context, collector()};
    std::optional<TrafficService> service;
    TrafficAccount recorded;
    double byProcesses = 0; ///< bytes received that items held at the folds
};

TEST_F(TrafficServiceTest, TheRecordHasEveryByteOnceWhoeverComesAndGoes)
{
    counting().refusal.reset();
    record();
    for (int second = 0; second < 10; ++second) {
        count(500, 500);
        service->start();
        EXPECT_EQ(shown(), 0) << "of the time before";
        count(1000, 1000);
        EXPECT_EQ(shown(), 1000);
        service->stop();
        EXPECT_EQ(counting().running, 1);
    }
    EXPECT_EQ(recorded.processes.download, 15'000);
    EXPECT_EQ(byProcesses, 15'000);
    count(0, 2000);
    count(2000, 0); // what had seemed to be the kernel's
    count(0, 0);
    count(0, 0);
    count(0, 3000);
    EXPECT_EQ(recorded.processes.download + recorded.kernel.download, 20'000) << "nothing is counted twice";
    const Value owners = service->describe()["owners"];
    EXPECT_EQ(owners["process"], (Value{{"received", recorded.processes.download}, {"sent", 0}}));
    EXPECT_EQ(owners["kernel"]["received"], recorded.kernel.download);
    EXPECT_EQ(owners["unattributed"]["received"], 0);
    service->stopRecording();
    EXPECT_EQ(counting().running, 0);
    count(1, 1);
    EXPECT_EQ(recorded.processes.download, 17'000);
}

/// As on macOS.
TEST_F(TrafficServiceTest, TheRecordTakesTheKernelsCountersWhileNobodyHasPacketsCaptured)
{
    machine.networkStatistics().isWhole = true;
    auto& rows = machine.networkStatistics().rows;
    rows = {{.id = 7, .pid = 42, .protocol = 6, .localPort = 50, .bytesReceived = 90, .countedAt = 1}};
    record();
    EXPECT_EQ(service->describe()["recorded"], true);
    const auto carry = [&](std::uint64_t bytes) {
        machine.runtime.advance(1);
        rows[0].bytesReceived += bytes;
        rows[0].countedAt = machine.runtime.monotonicTime();
    };
    service->process();
    carry(1000);
    service->process();
    carry(200);
    service->start(); // the last of them
    EXPECT_EQ(used(), "capture");
    deliver(30);
    service->process();
    carry(400); // captured, too
    deliver(400);
    service->stop();
    EXPECT_EQ(used(), "counters");
    carry(6);
    service->process();
    EXPECT_EQ(recorded.processes.download, 1000 + 200 + 30 + 400 + 6);
    EXPECT_EQ(byProcesses, recorded.processes.download);
    EXPECT_EQ(service->describe()["owners"]["process"]["received"], 1636) << "of all sources";
    EXPECT_TRUE(machine.host.limitations->all().empty());
}

TEST_F(TrafficServiceTest, PacketsAreCapturedForTheRecordOnlyWhereThatIsAllowed)
{
    record();
    service->process();
    EXPECT_EQ(tap().begun, 0);
    EXPECT_TRUE(tells("traffic-record"));
    service->start();
    deliver(1000);
    service->process();
    EXPECT_EQ(shown(), 1000);
    service->stop();
    EXPECT_EQ(used(), "none");
    EXPECT_EQ(recorded.processes.download, 0) << "a record of when somebody looked would tell of nothing else";

    counting().refusal.reset();
    service->start();
    EXPECT_FALSE(tells("traffic-record")) << "it can be had by now";
    service.reset();
    counting().refusal = {ErrorCode::NotFound, "no such thing"};
    record(TrafficSource::Auto, true);
    for (int client = 0; client < 2; ++client) {
        deliver(1000);
        service->start();
        service->process();
        service->stop();
    }
    EXPECT_EQ(recorded.processes.download, 2000);
    EXPECT_EQ(tap().running.size(), 1U);
}

TEST_F(TrafficServiceTest, TheFirstSourceThatWorksIsTaken)
{
    keep();
    counting().refusal.reset();
    service->start();
    service->start();
    EXPECT_EQ(counting().begun, 1) << "a second client does not start it over";
    EXPECT_EQ(used(), "bpf");
    EXPECT_EQ(service->describe()["method"], "fake");
    EXPECT_EQ(tap().begun, 0);
    TrafficCount count;
    count.process = {42, 42};
    count.bytesReceived = 1000;
    counting().next.counts = {count};
    counting().next.interfaceBytesReceived = 1014;
    service->process();
    EXPECT_EQ(service->latestShares()["attributed"]["d"], 1000);
    EXPECT_EQ(service->latestShares()["kernel"]["d"], 14);
    EXPECT_EQ(service->describe()["processBytes"], 1000);
    service->stop();
    EXPECT_EQ(counting().running, 0);
    EXPECT_EQ(used(), "none");

    counting().refusal = {ErrorCode::NotPermitted, "locked down"};
    service->start();
    EXPECT_EQ(used(), "capture");
    EXPECT_NE(machine.host.limitations->all().at("traffic-counters").find("locked down"), std::string::npos);
    counting().refusal.reset();
    service->stop();
    service->start();
    EXPECT_FALSE(machine.host.limitations->all().contains("traffic-counters"));
}

TEST_F(TrafficServiceTest, ASourceThatWasChosenStandsForItself)
{
    const auto sourceFor = [this](TrafficSource chosen) {
        keep(chosen);
        service->start();
        service->process();
        return used();
    };
    counting().refusal.reset();
    EXPECT_EQ(sourceFor(TrafficSource::Pcap), "capture");
    EXPECT_EQ(sourceFor(TrafficSource::Sockets), "counters");
    EXPECT_TRUE(machine.host.limitations->all().empty()) << "as was wished";
    counting().refusal = {ErrorCode::NotFound, "no such thing"};
    EXPECT_EQ(sourceFor(TrafficSource::Bpf), "none");
    EXPECT_TRUE(machine.host.limitations->all().contains("traffic-counters"));
}

TEST_F(TrafficServiceTest, WithoutTheRightTheKernelsCountersServe)
{
    keep();
    std::vector<std::string> told;
    machine.host.limitations->listen([&](const std::string& key, const std::string&) { told.push_back(key); });
    tap().refusal = "Operation not permitted";
    service->start();
    service->start();
    changeNetwork();
    EXPECT_EQ(tap().refused, 2) << "as often as it was asked for, whatever the network does";
    service->process();
    EXPECT_EQ(told, std::vector<std::string>{"packet-capture"}) << "said once";
    EXPECT_TRUE(statistics.isStarted());
    EXPECT_EQ(used(), "counters");
    EXPECT_EQ(service->latestShares(), (Dictionary{{"source", "counters"}}));

    tap().refusal.clear();
    service->start();
    EXPECT_FALSE(statistics.isStarted());
    EXPECT_EQ(used(), "capture");
    deliver(1000);
    service->process();
    EXPECT_EQ(service->latestShares()["attributed"]["d"], 1000);
    tap().running[0]->sink->failed("the tap is gone");
    service->process();
    EXPECT_TRUE(statistics.isStarted()) << "also when it ends by itself";
    changeNetwork();
    deliver(500);
    service->process();
    EXPECT_FALSE(statistics.isStarted()) << "one source at a time";
    EXPECT_EQ(traffic(42)[0], 500);
    EXPECT_TRUE(machine.host.limitations->all().empty());
    service->stop();
    EXPECT_EQ(used(), "none");
}

} // namespace
} // namespace meridal::test
