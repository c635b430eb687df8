// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/NetworkStatisticsStatCollector.h"
#include "tests/linux/NetworkBed.h"
#include "tests/support/SlowBuild.h"

#include <net/if.h>

namespace meridal::test {
namespace {

class TrafficTest : public DaemonBedTest {
protected:
    void startCapture()
    {
        packets.startCaputure();
        ASSERT_TRUE(packets.isCapturing()) << packets.failure();
        serveFor(0.1);
        before = NetworkBed::carried();
    }
    /// And what they sent is counted.
    void finish(const std::vector<const Worker*>& all)
    {
        await(all);
        fold();
    }
    void fold()
    {
        serveFor(0.6);
        captured.update();
        packets.process();
    }
    void expectAccountedFor() const
    {
        const double all = carried();
        EXPECT_NEAR(accountedFor(packets.total()), all, all * 0.02);
        EXPECT_LT(packets.total().unattributed.linkBytes, all * 0.02);
    }
    /// On a machine too busy to empty the ring in time nothing can be said of single processes.
    bool isWhole() const { return packets.statistics().dropped == 0; }
    const ProcessStatCollectorItem& item(const Worker& worker) { return *captured.processForPid(worker.pid()); }
};

/// At least what was sent, and no more than headers and a few retransmissions on top.
void expectTraffic(double figure, double sent, const char* what)
{
    EXPECT_GE(figure, sent) << what;
    EXPECT_LE(figure, sent * 1.06 + 2000) << what;
}

TEST_F(TrafficTest, EveryProcessGetsWhatItSentAndReceivedAndTheSumsClose)
{
    constexpr double megabyte = 1e6;
    startCapture();
    for (const std::string address : {NetworkBed::peer4, NetworkBed::peer6}) {
        Worker& uploader = begun([=] { tcpSend(address, 8'000'000); });
        Worker& downloader = begun([=] { tcpReceive(address, 12'000'000); });
        Worker& caller = begun([=] { udpSend(address, 2000, 1200); });
        Worker& listener = begun([=] { udpReceive(address, 2000, 1200); });
        Worker& large = begun([=] { udpSend(address, 300, 8000); }); // goes in fragments
        finish({&uploader, &downloader, &caller, &listener, &large});
        if (!isWhole()) {
            GTEST_SKIP() << packets.statistics().dropped << " frames dropped: too busy a machine";
        }
        expectTraffic(item(uploader).activity().networkUpload.value_or(0), 8 * megabyte, "TCP sent");
        EXPECT_LT(item(uploader).activity().networkDownload.value_or(0), 0.5 * megabyte)
            << "nothing but acknowledgements";
        expectTraffic(item(downloader).activity().networkDownload.value_or(0), 12 * megabyte, "TCP received");
        expectTraffic(item(caller).activity().networkUpload.value_or(0), 2.4 * megabyte, "UDP sent");
        expectTraffic(item(listener).activity().networkDownload.value_or(0), 2.4 * megabyte, "UDP received");
        expectTraffic(item(large).activity().networkUpload.value_or(0), 2.4 * megabyte, "UDP in fragments");
    }
    expectAccountedFor();
}

TEST_F(TrafficTest, TrafficWithinTheMachineCountsOnceForEachEnd)
{
    startCapture();
    Worker& server = begun([] {
        const Descriptor listening = bound(SOCK_STREAM, tcpSink);
        const Descriptor connection(::accept(listening.get(), nullptr, nullptr));
        receiveBytes(connection.get(), ~std::uint64_t{0});
        ::pause();
    });
    Worker& client = begun([] {
        static Descriptor socket;
        while (!socket) { // until the other one listens
            socket = socketTo(SOCK_STREAM, "127.0.0.1", tcpSink);
        }
        sendBytes(socket.get(), 10'000'000);
    });
    finish({&client});
    expectTraffic(item(client).activity().networkUpload.value_or(0), 10e6, "sent");
    expectTraffic(item(server).activity().networkDownload.value_or(0), 10e6, "received");
    EXPECT_LT(item(client).activity().networkDownload.value_or(0), 1e6);
    EXPECT_LT(item(server).activity().networkUpload.value_or(0), 1e6);
    expectAccountedFor();
}

/// Two networks of containers on one bridge: nothing of it is a process's that this machine could name.
TEST_F(TrafficTest, WhatOnlyPassesABridgeIsTheKernelsOnBothPorts)
{
    NetworkBed::run("ip link add br0 type bridge && ip addr flush dev m0 && ip link set m0 master br0"
                    " && ip addr add 10.99.0.1/24 dev br0 && ip link set br0 up");
    if (::if_nametoindex("br0") == 0) {
        GTEST_SKIP() << "this kernel has no bridges";
    }
    Worker& guest = worker({[] { ::unshare(CLONE_NEWNET); }, [] { tcpSend(NetworkBed::peer4, 4'000'000); }});
    guest.go();
    await({&guest});
    NetworkBed::run("ip link add m1 type veth peer name p1 netns " + std::to_string(guest.pid())
        + "; ip link set m1 master br0 up; nsenter -t " + std::to_string(guest.pid())
        + " -n sh -c 'ip link set lo up; ip addr add 10.99.0.3/24 dev p1; ip link set p1 up'");
    startCapture();
    guest.go();
    finish({&guest});
    fold();
    EXPECT_GE(packets.total().kernel.linkBytes, 2 * 4e6) << "in at one port and out at the other";
    EXPECT_LT(packets.total().unattributed.linkBytes, 0.1e6);
}

/// In shares of the time that the flood lasts, so that a busy machine changes nothing.
TEST_F(TrafficTest, AFloodIsCountedOrShownAsDroppedAndTakesNoMoreThanAThirdOfACore)
{
    startCapture();
    const double began = runtime.monotonicTime();
    const double cpuBefore = host->selfUsage->read().cpuSeconds.value_or(0);
    run([] { flood(NetworkBed::peer4, 1000); });
    const double cpu = host->selfUsage->read().cpuSeconds.value_or(0) - cpuBefore;
    const double share = cpu / (runtime.monotonicTime() - began);
    constexpr double sent = 512'000;
    CaptureStatistics statistics;
    double sum = 0;
    for (int i = 0; i < 30 && sum < sent * 0.98; ++i) { // a full ring takes a busy machine more than a moment
        fold();
        statistics = packets.statistics();
        sum = static_cast<double>(statistics.frames + statistics.dropped);
    }
    EXPECT_NEAR(sum, sent, sent * 0.02) << statistics.frames << " and " << statistics.dropped;
    EXPECT_LE(packets.pstorage().capacity(), PacketBuffer::step);
    EXPECT_LT(share, slowBuild ? 1.0 : 0.33);
    RecordProperty("cpuShare", std::to_string(share));
    RecordProperty("dropped", std::to_string(statistics.dropped));
}

/// By the kernel's counters of connections.
class CountersTest : public TrafficTest {
protected:
    void SetUp() override
    {
        TrafficTest::SetUp();
        statistics.setFigure(NetworkStatisticsStatCollector::Figure::Bytes);
        ASSERT_TRUE(IsSkipped() || statistics.start());
    }
    /// In a worker: all by one connection.
    void send(const char* address, std::uint64_t count)
    {
        if (!connection) {
            connection = socketTo(SOCK_STREAM, address, tcpSink);
        }
        sendBytes(connection.get(), count);
    }

    /// What the counters give a worker since the last look, some time on.
    double look(const Worker& worker, double seconds)
    {
        serveFor(seconds);
        processes.update();
        statistics.updateStats();
        const auto* item = processes.processForPid(worker.pid());
        return item ? item->activity().networkUpload.value_or(0) : 0;
    }

    ProcessStatCollector processes{context};
    NetworkStatisticsStatCollector statistics{context, processes};
    Descriptor connection;
};

TEST_F(CountersTest, HaveAConnectionFromItsFirstByteToItsLast)
{
    const auto send = [this] { CountersTest::send(NetworkBed::peer4, 2'000'000); };
    const auto sendAndClose = [&] {
        send();
        connection = Descriptor();
    };
    Worker& uploader = worker({send, send, sendAndClose});
    constexpr double step = 0.3; // s
    double sum = look(uploader, step);
    for (const double sent : {2e6, 4e6, 6e6}) {
        uploader.go();
        await({&uploader});
        for (int i = 0; i < 20 && sum < sent; ++i) { // its owner is being looked for
            sum += look(uploader, step);
        }
    }
    expectTraffic(sum, 6e6, "of one connection");
}

TEST_F(CountersTest, AgreeWithTheCapture)
{
    Worker& uploader = worker(Steps(10, [this] { send(NetworkBed::peer6, 1'000'000); }));
    const auto look = [&] { return CountersTest::look(uploader, 0.1); };
    look();
    startCapture();
    double byCounters = 0;
    for (int i = 0; i < 10; ++i) {
        uploader.go();
        await({&uploader});
        byCounters += look();
    }
    for (int without = 0; without < 5; ++without) { // an answer may come late, so one look without bytes is not the end
        if (const double more = look(); more > 0) {
            byCounters += more;
            without = 0;
        }
    }
    fold();
    expectTraffic(byCounters, 10e6, "by the counters");
    EXPECT_NEAR(item(uploader).activity().networkUpload.value_or(0), byCounters, byCounters * 0.06);

    const std::vector<std::int32_t> pids = {uploader.pid()};
    const auto rows = host->processConnections->readConnections(pids);
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].foreignPort, tcpSink);
    EXPECT_GE(rows[0].bytesSent.value_or(0), 10'000'000U);
}

} // namespace
} // namespace meridal::test
