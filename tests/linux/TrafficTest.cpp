#include "base/Log.h"
#include "base/NotificationCenter.h"
#include "collectors/process/NetworkStatisticsStatCollector.h"
#include "collectors/process/PacketStatCollector.h"
#include "collectors/process/ProcessStatCollector.h"
#include "platform/Context.h"
#include "platform/linux/LinuxHost.h"
#include "tests/linux/NetworkBed.h"
#include "tests/support/SlowBuild.h"
#include "tests/support/TemporaryTree.h"

#include <net/if.h>

namespace meridal::test {
namespace {

/// The daemon's collectors on this machine, in a network of their own.
class TrafficTest : public TrafficBedTest {
protected:
    void startCapture()
    {
        packets.startCaputure();
        ASSERT_TRUE(packets.isCapturing()) << packets.failure();
        serveFor(0.1);
        before = NetworkBed::carried();
    }
    Worker& begun(const std::function<void()>& step)
    {
        Worker& one = worker(step);
        one.go();
        return one;
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
        processes.update();
        packets.process();
    }
    /// On a machine too busy to empty the ring in time nothing can be said of single processes.
    bool isWhole() const { return packets.statistics().dropped == 0; }
    const ProcessStatCollectorItem& item(const Worker& worker) { return *processes.processForPid(worker.pid()); }
    /// What all interfaces counted since the capture began.
    double counted() const
    {
        const auto now = NetworkBed::carried();
        return now.first + now.second - before.first - before.second;
    }
    double accounted() const
    {
        const TrafficAccount& total = packets.total();
        return total.processes.linkBytes + total.kernel.linkBytes + total.unattributed.linkBytes;
    }

    NotificationCenter notifications;
    Log log;
    TemporaryTree files;
    std::unique_ptr<Host> host = makeLinuxHost(runtime);
    Context context{runtime, *host, notifications, log, Paths::underRoot(files.root())};
    ProcessStatCollector processes{context};
    PacketStatCollector packets{context, processes};
    std::pair<double, double> before;
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
        expectTraffic(item(uploader).networkUpload(), 8 * megabyte, "TCP sent");
        EXPECT_LT(item(uploader).networkDownload(), 0.5 * megabyte) << "nothing but acknowledgements";
        expectTraffic(item(downloader).networkDownload(), 12 * megabyte, "TCP received");
        expectTraffic(item(caller).networkUpload(), 2.4 * megabyte, "UDP sent");
        expectTraffic(item(listener).networkDownload(), 2.4 * megabyte, "UDP received");
        expectTraffic(item(large).networkUpload(), 2.4 * megabyte, "UDP in fragments");
    }
    EXPECT_NEAR(accounted(), counted(), counted() * 0.02);
    EXPECT_LT(packets.total().unattributed.linkBytes, counted() * 0.02);
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
    expectTraffic(item(client).networkUpload(), 10e6, "sent");
    expectTraffic(item(server).networkDownload(), 10e6, "received");
    EXPECT_LT(item(client).networkDownload(), 1e6);
    EXPECT_LT(item(server).networkUpload(), 1e6);
    EXPECT_NEAR(accounted(), counted(), counted() * 0.02);
}

TEST_F(TrafficTest, WhatStandsOnAnotherInterfaceIsCountedOnce)
{
    NetworkBed::run("ip link add br0 type bridge && ip addr flush dev m0 && ip link set m0 master br0"
                    " && ip addr add 10.99.0.1/24 dev br0 && ip link set br0 up");
    if (::if_nametoindex("br0") == 0) {
        GTEST_SKIP() << "this kernel has no bridges";
    }
    startCapture();
    Worker& uploader = begun([] { tcpSend(NetworkBed::peer4, 4'000'000); });
    Worker& caller = begun([] { udpSend(NetworkBed::peer4, 1000, 1000); });
    finish({&uploader, &caller});
    expectTraffic(item(uploader).networkUpload(), 4e6, "TCP over the bridge");
    expectTraffic(item(caller).networkUpload(), 1e6, "UDP over the bridge");
}

/// Two networks of containers on one bridge: nothing of it is a process's that this machine could name.
TEST_F(TrafficTest, WhatOnlyPassesABridgeIsTheKernelsOnBothPorts)
{
    NetworkBed::run("ip link add br0 type bridge && ip addr flush dev m0 && ip link set m0 master br0"
                    " && ip addr add 10.99.0.1/24 dev br0 && ip link set br0 up");
    if (::if_nametoindex("br0") == 0) {
        GTEST_SKIP() << "this kernel has no bridges";
    }
    Worker& guest = workers.emplace_back(std::vector<std::function<void()>>{
        [] { ::unshare(CLONE_NEWNET); }, [] { tcpSend(NetworkBed::peer4, 4'000'000); }});
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
    Worker& flooder = begun([] { flood(NetworkBed::peer4, 2000); });
    await({&flooder});
    const double cpu = host->selfUsage->read().cpuSeconds.value_or(0) - cpuBefore;
    const double share = cpu / (runtime.monotonicTime() - began);
    constexpr double sent = 1'024'000;
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
    Worker& uploader = workers.emplace_back(std::vector<std::function<void()>>{send, send, sendAndClose});
    double sum = 0;
    const auto look = [&] {
        serveFor(0.3); // longer than one reading of all sockets is good for
        processes.update();
        statistics.updateStats();
        const auto* item = processes.processForPid(uploader.pid());
        sum += item ? item->networkUpload() : 0;
    };
    look();
    serveFor(NetworkStatisticsStatCollector::listingTime); // what comes from now on is new
    for (int step = 0; step < 3; ++step) {
        uploader.go();
        await({&uploader});
        for (int i = 0; i < 20 && sum < 2e6 * (step + 1); ++i) { // its owner is being looked for
            look();
        }
    }
    expectTraffic(sum, 6e6, "of one connection");
}

TEST_F(CountersTest, AgreeWithTheCapture)
{
    startCapture();
    Worker& uploader =
        workers.emplace_back(std::vector<std::function<void()>>(60, [this] { send(NetworkBed::peer6, 1'000'000); }));
    const auto look = [&] {
        serveFor(0.1);
        processes.update();
        statistics.updateStats();
        const auto* item = processes.processForPid(uploader.pid());
        return item ? item->networkUpload() : 0;
    };
    const auto sendOnce = [&] {
        uploader.go();
        await({&uploader});
    };
    int steps = 0;
    for (bool isKnown = false; !isKnown && steps < 50; ++steps) { // its owner is found, its first counts are read
        sendOnce();
        isKnown = look() > 0;
    }
    const auto rest = [&] { // an answer may come late, so one look without bytes is not the end
        double sum = 0;
        for (int without = 0; without < 5; ++without) {
            if (const double more = look(); more > 0) {
                sum += more;
                without = 0;
            }
        }
        return sum;
    };
    rest();
    fold();
    double byCounters = 0;
    for (int i = 0; i < 10; ++i) {
        sendOnce();
        byCounters += look();
    }
    byCounters += rest();
    fold();
    expectTraffic(byCounters, 10e6, "by the counters");
    EXPECT_NEAR(item(uploader).networkUpload(), byCounters, byCounters * 0.06);

    const std::vector<std::int32_t> pids = {uploader.pid()};
    const auto rows = host->processConnections->readConnections(pids);
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].foreignPort, tcpSink);
    EXPECT_GE(rows[0].bytesSent.value_or(0), static_cast<std::uint64_t>(steps + 10) * 1'000'000);
}

} // namespace
} // namespace meridal::test
