// Which of the three ways to count traffic is taken, and what is told of it.

#include "daemon/CaptureKeeper.h"
#include "collectors/process/NetworkStatisticsStatCollector.h"
#include "collectors/process/PacketStatCollector.h"
#include "collectors/process/TrafficCounterCollector.h"
#include "daemon/CollectorPorts.h"
#include "tests/process/FrameBytes.h"
#include "tests/process/ProcessFixture.h"

namespace meridal::test {
namespace {

class CaptureKeeperTest : public ProcessFixture {
protected:
    CaptureKeeperTest()
    {
        set(42);
        update();
    }
    void keep(TrafficSource chosen = TrafficSource::Auto)
    {
        keeper.emplace(machine.context, CaptureKeeper::Collectors{counters, packets, statistics}, chosen);
        keeper->plugInto(ports);
    }
    Value used() { return keeper->describe()["source"]; }
    FakePacketTap& tap() { return machine.packetTap(); }
    FakeTrafficCounters& counting() { return machine.trafficCounters(); }
    void deliver(unsigned bytes)
    {
        const TappedFrame frame = tapped(42, FrameDirection::Received, bytes);
        tap().deliver({frame});
    }
    void changeNetwork() { machine.notifications.post("STAT_COLLECTION_NETWORK_SETUP_CHANGED", nullptr); }

    TrafficCounterCollector counters{machine.context, collector()};
    PacketStatCollector packets{machine.context, collector()};
    NetworkStatisticsStatCollector statistics{machine.context, collector()};
    CollectorPorts ports;
    std::optional<CaptureKeeper> keeper;
};

TEST_F(CaptureKeeperTest, TheFirstSourceThatWorksIsTaken)
{
    keep();
    counting().refusal.reset();
    ports.startCapture();
    ports.startCapture();
    EXPECT_EQ(counting().begun, 1) << "a second client does not start it over";
    EXPECT_EQ(used(), "bpf");
    EXPECT_EQ(keeper->describe()["method"], "fake");
    EXPECT_EQ(tap().begun, 0);
    TrafficCount count;
    count.process = {42, 42};
    count.bytesReceived = 1000;
    counting().next.counts = {count};
    counting().next.interfaceBytesReceived = 1014;
    ports.processCapture();
    EXPECT_EQ(keeper->latestShares()["attributed"]["d"], 1000);
    EXPECT_EQ(keeper->latestShares()["kernel"]["d"], 14);
    EXPECT_EQ(keeper->describe()["processBytes"], 1000);
    ports.stopCapture();
    EXPECT_EQ(counting().running, 0);
    EXPECT_EQ(used(), "none");

    counting().refusal = {ErrorCode::NotPermitted, "locked down"};
    ports.startCapture();
    EXPECT_EQ(used(), "capture");
    EXPECT_NE(machine.host.limitations->all().at("traffic-counters").find("locked down"), std::string::npos);
    counting().refusal.reset();
    ports.stopCapture();
    ports.startCapture();
    EXPECT_FALSE(machine.host.limitations->all().contains("traffic-counters"));
}

TEST_F(CaptureKeeperTest, ASourceThatWasChosenStandsForItself)
{
    const auto sourceFor = [this](TrafficSource chosen) {
        keep(chosen);
        ports.startCapture();
        ports.processCapture();
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

TEST_F(CaptureKeeperTest, WithoutTheRightTheKernelsCountersServe)
{
    keep();
    std::vector<std::string> told;
    machine.host.limitations->listen([&](const std::string& key, const std::string&) { told.push_back(key); });
    tap().refusal = "Operation not permitted";
    ports.startCapture();
    ports.startCapture();
    changeNetwork();
    EXPECT_EQ(tap().refused, 2) << "as often as it was asked for, whatever the network does";
    ports.processCapture();
    EXPECT_EQ(told, std::vector<std::string>{"packet-capture"}) << "said once";
    EXPECT_TRUE(statistics.isStarted());
    EXPECT_EQ(used(), "counters");
    EXPECT_EQ(keeper->latestShares(), (Dictionary{{"source", "counters"}}));

    tap().refusal.clear();
    ports.startCapture();
    EXPECT_FALSE(statistics.isStarted());
    EXPECT_EQ(used(), "capture");
    deliver(1000);
    ports.processCapture();
    EXPECT_EQ(keeper->latestShares()["attributed"]["d"], 1000);
    tap().running[0]->sink->failed("the tap is gone");
    ports.processCapture();
    EXPECT_TRUE(statistics.isStarted()) << "also when it ends by itself";
    changeNetwork();
    deliver(500);
    ports.processCapture();
    EXPECT_FALSE(statistics.isStarted()) << "one source at a time";
    EXPECT_EQ(item(42).networkDownload(), 500);
    EXPECT_TRUE(machine.host.limitations->all().empty());
    ports.stopCapture();
    EXPECT_EQ(used(), "none");
}

} // namespace
} // namespace meridal::test
