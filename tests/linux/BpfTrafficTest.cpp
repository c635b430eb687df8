// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/TrafficCounterCollector.h"
#include "platform/linux/traffic/BpfTrafficCounters.h"
#include "tests/linux/NetworkBed.h"
#include "tests/support/SlowBuild.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <linux/tcp.h>
#include <net/if.h>
#include <netinet/icmp6.h>
#include <netinet/ip_icmp.h>
#include <sys/mman.h>
#include <sys/syscall.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <map>

namespace meridal::test {
namespace {

/// IP and UDP headers; IP and TCP headers with the time stamps that Linux sends, and how much longer they are in a SYN.
constexpr std::uint64_t udp4 = 28;
constexpr std::uint64_t udp6 = 48;
constexpr std::uint64_t tcp4 = 52;
constexpr std::uint64_t tcp6 = 72;
constexpr std::uint64_t synExtra = 8;

/// For each of the objects. The fixture's start() says why one cannot be.
template <typename Fixture>
class ByObject : public Fixture, public ::testing::WithParamInterface<const char*> {
protected:
    void SetUp() override
    {
        Fixture::SetUp();
        if (const std::string why = Fixture::IsSkipped() ? "" : Fixture::start(this->GetParam()); !why.empty()) {
            GTEST_SKIP() << why;
        }
    }
};

/// What workers tell the test.
struct Shared {
    static Shared* make()
    {
        void* memory = ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        return new (memory) Shared();
    }

    std::atomic<std::int32_t> pid;
    std::atomic<std::uint64_t> resent;
    std::atomic<std::uint64_t> sent;
};

/// Counted by the object that a test names.
class BpfTrafficTest : public TrafficBedTest {
protected:
    /// Why it cannot be; empty when it runs.
    std::string start(const std::string& object)
    {
        BpfTrafficCounters counters(runtime, {.objects = {object}});
        auto started = counters.start();
        if (!started) {
            return started.error().message;
        }
        counting = std::move(*started);
        return {};
    }
    void read()
    {
        for (const TrafficCount& count : counting->read().counts) {
            TrafficCount& sum = seen[count.process.pid];
            sum.ancestors = count.ancestors;
            sum.isElsewhere = count.isElsewhere;
            sum.bytesReceived += count.bytesReceived;
            sum.bytesSent += count.bytesSent;
            sum.packetsReceived += count.packetsReceived;
            sum.packetsSent += count.packetsSent;
        }
    }
    const TrafficCount& of(std::int32_t pid) { return seen[pid]; }

    std::unique_ptr<TrafficCounters::Counting> counting;
    std::map<std::int32_t, TrafficCount> seen;
    Shared* const shared = Shared::make();
};

/// Runs this in a child and waits for its end. `meanwhile` runs here.
void inAChild(const std::function<void()>& run, const std::function<void()>& meanwhile = nullptr)
{
    const pid_t child = ::fork();
    if (child == 0) {
        run();
        ::_exit(0);
    }
    if (meanwhile) {
        meanwhile();
    }
    ::waitpid(child, nullptr, 0);
}

/// From here on this process gets no sockets of IPv4 and IPv6, as in the daemon's unit. False when it does.
bool refuseInternetSockets()
{
    constexpr std::uint32_t first = offsetof(seccomp_data, args);
    std::array<sock_filter, 7> filter = {{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_socket, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, first),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AF_INET, 2, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AF_INET6, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EAFNOSUPPORT),
    }};
    const sock_fprog program{.len = filter.size(), .filter = filter.data()};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0
        && ::socket(AF_INET, SOCK_DGRAM, 0) < 0;
}

/// Sends to the sink and waits until it has all.
void tcpSendAll(Shared& shared, const std::string& address, std::uint64_t count)
{
    const Descriptor socket = socketTo(SOCK_STREAM, address, tcpSink);
    sendBytes(socket.get(), count);
    ::shutdown(socket.get(), SHUT_WR);
    receiveBytes(socket.get(), 1);
    tcp_info info{};
    socklen_t size = sizeof info;
    ::getsockopt(socket.get(), IPPROTO_TCP, TCP_INFO, &info, &size);
    shared.resent = info.tcpi_bytes_retrans;
}

/// One echo of `size` bytes, there and back.
void ping(const std::string& address, std::size_t size)
{
    const bool isIPv6 = address.find(':') != std::string::npos;
    const int protocol = isIPv6 ? int{IPPROTO_ICMPV6} : int{IPPROTO_ICMP};
    const Descriptor socket = socketTo(SOCK_RAW, address, 0, protocol);
    if (isIPv6) {
        icmp6_filter filter;
        ICMP6_FILTER_SETBLOCKALL(&filter);
        ICMP6_FILTER_SETPASS(ICMP6_ECHO_REPLY, &filter);
        ::setsockopt(socket.get(), IPPROTO_ICMPV6, ICMP6_FILTER, &filter, sizeof filter);
    }
    std::vector<std::uint8_t> echo(size);
    echo[0] = isIPv6 ? ICMP6_ECHO_REQUEST : ICMP_ECHO;
    std::uint32_t sum = echo[0]; // all others are 0; IPv6 sums by itself
    const auto check = static_cast<std::uint16_t>(~sum);
    std::memcpy(echo.data() + 2, &check, sizeof check);
    ::send(socket.get(), echo.data(), echo.size(), 0);
    std::vector<char> answer(size + 60);
    ::recv(socket.get(), answer.data(), answer.size(), 0);
}

using PacketsOf = ByObject<BpfTrafficTest>;

TEST_P(PacketsOf, KnownTransfersCountToTheByte)
{
    struct Transfer {
        const char* address;
        std::uint64_t udp, tcp, icmp;
    };
    for (const Transfer& by :
        {Transfer{NetworkBed::peer4, udp4, tcp4, 20}, Transfer{NetworkBed::peer6, udp6, tcp6, 40}}) {
        const Worker& caller = run([=] { udpSend(by.address, 2000, 1200); });
        const Worker& listener = run([=] { udpReceive(by.address, 50, 1000); });
        const Worker& uploader = run([=, this] { tcpSendAll(*shared, by.address, 8'000'000); });
        const std::uint64_t resent = shared->resent;
        const Worker& pinger = run([=] { ping(by.address, 408); });
        read();
        EXPECT_EQ(of(caller.pid()).bytesSent, 2000 * (1200 + by.udp));
        EXPECT_EQ(of(caller.pid()).packetsSent, 2000U);
        EXPECT_EQ(of(listener.pid()).bytesSent, sizeof(Question) + by.udp);
        EXPECT_EQ(of(listener.pid()).bytesReceived, 50 * (1000 + by.udp));
        const TrafficCount& up = of(uploader.pid());
        EXPECT_EQ(up.bytesSent, 8'000'000 + resent + up.packetsSent * by.tcp + synExtra);
        EXPECT_LT(up.bytesReceived, 500'000U) << "nothing but acknowledgements";
        EXPECT_EQ(of(pinger.pid()).bytesSent, 408 + by.icmp);
        EXPECT_EQ(of(pinger.pid()).bytesReceived, 408 + by.icmp);
        EXPECT_FALSE(up.isElsewhere);
        std::uint64_t extra = 1; // what the other end sends twice, as it does on a busy machine, comes twice
        for (int attempt = 0; attempt < 10 && extra != 0; ++attempt) {
            const Worker& downloader = run([=] { tcpReceive(by.address, 12'000'000); });
            read();
            const TrafficCount& down = of(downloader.pid());
            extra = down.bytesReceived - (12'000'000 + down.packetsReceived * by.tcp + synExtra);
        }
        EXPECT_EQ(extra, 0U);
    }
}

TEST_P(PacketsOf, NothingIsLostOfThousandsThatComeAndGo)
{
    constexpr int children = slowBuild ? 100 : 500;
    const Worker& parent = run([] {
        for (int i = 0; i < children; ++i) {
            inAChild([] { udpSend(NetworkBed::peer4, 3, 100); });
        }
    });
    std::uint64_t bytes = 0;
    std::uint64_t processes = 0;
    for (int i = 0; i < 3; ++i) { // also while entries go
        seen.clear();
        read();
        for (const auto& [pid, count] : seen) {
            if (count.ancestors[0].pid == parent.pid()) {
                bytes += count.bytesSent;
                ++processes;
            }
        }
    }
    EXPECT_EQ(bytes, children * 3 * (100 + udp4));
    EXPECT_EQ(processes, children) << "each under its own pid";
}

TEST_P(PacketsOf, AFloodCountsToTheByte)
{
    const Worker& flooder = run([this] { shared->sent = flood(NetworkBed::peer4, 400); });
    read();
    EXPECT_EQ(of(flooder.pid()).packetsSent, shared->sent.load());
    EXPECT_EQ(of(flooder.pid()).bytesSent, shared->sent.load() * (1 + udp4));
}

TEST_P(PacketsOf, ASocketIsHisWhoUsesIt)
{
    counting.reset();
    const Descriptor listening = bound(SOCK_STREAM, tcpSink);
    ASSERT_TRUE(listening);
    run([] { tcpSend("127.0.0.1", 1000); });
    const Descriptor accepted(::accept(listening.get(), nullptr, nullptr));
    ASSERT_EQ(start(GetParam()), "");
    sendBytes(accepted.get(), 500); // open before anybody counted
    // The one listens, a child of his accepts and reads.
    Worker& server = begun([&] {
        inAChild([&] {
            shared->pid = ::getpid();
            const Descriptor connection(::accept(listening.get(), nullptr, nullptr));
            receiveBytes(connection.get(), ~std::uint64_t{0});
        });
    });
    const Worker& client = run([] { sendBytes(socketTo(SOCK_STREAM, "127.0.0.1", tcpSink).get(), 1'000'000); });
    ASSERT_TRUE(server.wait());
    read();
    EXPECT_GE(of(shared->pid).bytesReceived, 1'000'000U);
    EXPECT_LT(of(server.pid()).bytesReceived, 1000U);
    EXPECT_GE(of(client.pid()).bytesSent, 1'000'000U);
    EXPECT_LT(of(client.pid()).bytesSent, 1'500'000U) << "within the machine once for each end";
    EXPECT_LT(of(client.pid()).bytesReceived, 100'000U);
    EXPECT_GE(of(::getpid()).bytesSent, 500 + tcp4);
}

TEST_P(PacketsOf, AConnectionOfAForkingServerIsTheChilds)
{
    const Descriptor listening = bound(SOCK_STREAM, tcpSink);
    ASSERT_TRUE(listening);
    Worker& server = begun([&] {
        Descriptor connection(::accept(listening.get(), nullptr, nullptr));
        inAChild(
            [&] {
                shared->pid = ::getpid();
                receiveBytes(connection.get(), ~std::uint64_t{0});
            },
            [&] { connection = Descriptor(); });
    });
    run([] {
        const Descriptor socket = socketTo(SOCK_STREAM, "127.0.0.1", tcpSink);
        sendBytes(socket.get(), 50'000);
        ::poll(nullptr, 0, 1200); // the kernel's own clock: longer than it waits where it hears of calls
        sendBytes(socket.get(), 50'000);
    });
    ASSERT_TRUE(server.wait());
    read();
    EXPECT_GE(of(shared->pid).bytesReceived, 100'000U);
    EXPECT_LT(of(server.pid()).bytesReceived, 1000U);
}

TEST_P(PacketsOf, ADaemonThatGetsNoInternetSocketsCountsToo)
{
    inAChild([this] {
        const bool isRefused = refuseInternetSockets();
        BpfTrafficCounters counters(runtime, {.objects = {GetParam()}});
        shared->sent = isRefused && counters.start() ? 1 : 2;
    });
    EXPECT_EQ(shared->sent, 1U);
}

INSTANTIATE_TEST_SUITE_P(BpfTraffic, PacketsOf, ::testing::Values("traffic", "traffic_functions", "traffic_old"));

TEST_F(BpfTrafficTest, WithoutControlGroupsTheCallsAreCounted)
{
    TemporaryTree machine; // a /proc in which no control groups are mounted
    std::filesystem::create_directories(machine.root() / "proc/self/ns");
    std::filesystem::create_symlink("/proc/self/ns/pid", machine.root() / "proc/self/ns/pid");
    BpfTrafficCounters counters(runtime, {.root = machine.root()});
    auto started = counters.start();
    if (!started) {
        GTEST_SKIP() << started.error().message;
    }
    counting = std::move(*started);
    EXPECT_EQ(counting->method(), "calls");
    const Worker& caller = run([] { udpSend(NetworkBed::peer4, 2000, 1200); });
    const Worker& downloader = run([] { tcpReceive(NetworkBed::peer6, 1'000'000); });
    read();
    EXPECT_EQ(of(caller.pid()).bytesSent, 2000U * 1200);
    EXPECT_EQ(of(downloader.pid()).bytesReceived, 1'000'000U) << "payload only";
}

TEST_F(BpfTrafficTest, ARefusalSaysWhy)
{
    EXPECT_NE(start("no such object"), "");
    EXPECT_FALSE(BpfTrafficCounters(runtime, {.objects = {}}).start());
    const TemporaryTree container; // whose process numbers are its own
    EXPECT_NE(BpfTrafficCounters(runtime, {.root = container.root()}).start().error().message.find("container"),
        std::string::npos);
}

/// As the daemon runs them.
class AccountTest : public DaemonBedTest {
protected:
    /// Why it cannot be; empty when it runs.
    std::string start(const std::string& object = {})
    {
        if (!object.empty()) {
            host->trafficCounters =
                std::make_unique<BpfTrafficCounters>(runtime, BpfTrafficOptions{.root = "/", .objects = {object}});
        }
        const auto started = counters.start();
        before = NetworkBed::carried();
        return started ? "" : started.error().message;
    }
    void pass()
    {
        processes.update();
        counters.process();
    }
    bool countsPackets() const { return counters.method() == "packets"; }
    void expectAccountedFor() const
    {
        const double all = carried();
        EXPECT_NEAR(accountedFor(counters.total()), all, all * 0.01);
    }

    ProcessStatCollector processes{context};
    TrafficCounterCollector counters{context, processes};
    Shared* const shared = Shared::make();
};

using AccountOf = ByObject<AccountTest>;

TEST_P(AccountOf, WhatWaitsForASlowServerCountsOnce)
{
    static Descriptor listening; // of the server only
    const Worker& server = worker({[] { listening = bound(SOCK_STREAM, tcpSink); },
        [] {
            const Descriptor connection(::accept(listening.get(), nullptr, nullptr));
            receiveBytes(connection.get(), ~std::uint64_t{0});
        }});
    server.go();
    ASSERT_TRUE(server.wait());
    run([] { sendBytes(socketTo(SOCK_STREAM, "127.0.0.1", tcpSink).get(), 50'000); });
    pass();
    pass();
    if (countsPackets()) {
        EXPECT_LT(counters.total().kernel.download, 5000) << "it will be somebody's";
    }
    server.go();
    ASSERT_TRUE(server.wait());
    pass();
    EXPECT_GE(processes.processForPid(server.pid())->activity().networkDownload.value_or(0), 50'000);
    pass();
    pass();
    expectAccountedFor();
}

TEST_P(AccountOf, SmallPacketsWithinTheMachineHaveNoLinkHeaders)
{
    run([] {
        const Descriptor sink = bound(SOCK_DGRAM, udpSink);
        const Descriptor source = socketTo(SOCK_DGRAM, "127.0.0.1", udpSink);
        std::array<char, 100> bytes{};
        for (int i = 0; i < 2000; ++i) {
            static_cast<void>(::send(source.get(), bytes.data(), bytes.size(), 0));
            static_cast<void>(::recv(sink.get(), bytes.data(), bytes.size(), 0));
        }
    });
    pass();
    expectAccountedFor();
    if (countsPackets()) {
        EXPECT_NEAR(counters.total().processes.linkBytes, carried(), carried() * 0.01);
    }
}

TEST_P(AccountOf, AProcessThatHasEndedStandsInTheListOfThatPass)
{
    const double datagram = 1000 + (countsPackets() ? udp4 : 0);
    Worker& parent = worker({[this] {
        inAChild([this] {
            shared->pid = ::getpid();
            ::prctl(PR_SET_NAME, "brief");
            udpSend(NetworkBed::peer4, 100, 1000);
        });
    }});
    Worker& known = worker({[] { udpSend(NetworkBed::peer4, 50, 1000); }});
    const std::int32_t knownPid = known.pid();
    pass();
    parent.go();
    known.go();
    ASSERT_TRUE(parent.wait() && known.wait());
    workers.pop_back();
    pass();
    ProcessRanking ranking;
    ranking.sum(processes.table(), {}, {&ProcessFigure::upload, 1});
    std::map<std::int32_t, const ProcessRanking::Row*> list;
    for (const ProcessRanking::Row& row : ranking.first(0, unlimitedProcesses)) {
        list[row.item->pid] = &row;
    }
    const auto* brief = list[shared->pid];
    ASSERT_TRUE(brief && list[knownPid]);
    EXPECT_EQ(brief->item->name(), "brief");
    EXPECT_EQ(brief->totals[0], 100 * datagram);
    EXPECT_EQ(brief->item->parentPid, parent.pid());
    EXPECT_EQ(list[knownPid]->totals[0], 50 * datagram);
    EXPECT_EQ(counters.total().unattributed.upload, 0);
}

INSTANTIATE_TEST_SUITE_P(
    BpfTraffic, AccountOf, ::testing::Values("traffic", "traffic_functions", "traffic_old", "traffic_calls"));

/// Both ways at once, on the same transfers, as the daemon runs them.
TEST_F(AccountTest, TheSumsCloseAndAgreeWithTheCapture)
{
    packets.startCaputure();
    if (const std::string why = start(); !why.empty() || !packets.isCapturing()) {
        GTEST_SKIP() << why << packets.failure();
    }
    serveFor(0.1);
    before = NetworkBed::carried();
    const Worker& uploader = run([] { tcpSend(NetworkBed::peer4, 8'000'000); });
    // Of IPv6 the capture counts no fixed header.
    const Worker& caller = run([] { udpSend(NetworkBed::peer4, 2000, 1200); });
    serveFor(0.6);
    captured.update();
    pass();
    packets.process();
    const auto now = NetworkBed::carried();
    const double received = now.first - before.first;
    const double sent = now.second - before.second;
    const TrafficAccount& total = counters.total();
    EXPECT_NEAR(total.processes.download + total.kernel.download + total.unattributed.download, received, 2000);
    EXPECT_NEAR(total.processes.upload + total.kernel.upload + total.unattributed.upload, sent, 2000);
    EXPECT_NEAR(accountedFor(total), received + sent, 4000);
    EXPECT_LT(total.kernel.linkBytes, (received + sent) * 0.01) << "headers of the link are the processes'";
    // What came by the connection may still wait for its owner, where calls do not claim it.
    EXPECT_GT(counters.elsewhere().download, 2000 * 1200) << "the other end is on this machine, too";
    if (packets.statistics().dropped > 0) {
        GTEST_SKIP() << "too busy a machine to capture";
    }
    for (const Worker* worker : {&uploader, &caller}) {
        const double figure = processes.processForPid(worker->pid())->activity().networkUpload.value_or(0);
        EXPECT_NEAR(figure, captured.processForPid(worker->pid())->activity().networkUpload.value_or(0), figure * 0.01);
    }
}

struct Standing {
    const char* what;
    const char* made; ///< over the interface of an end
    bool isTunnel;    ///< a packet goes within another one, of the kernel's
};

class StackTest : public AccountTest, public ::testing::WithParamInterface<Standing> { };

/// A packet crosses each interface of a stack, and is tapped on each.
TEST_P(StackTest, PacketsCountOnceAndTunnelsAreTheKernels)
{
    constexpr const char* peer = "10.98.0.2";
    bed.runAtBothEnds(std::string(GetParam().made) + "; ip addr add 10.98.0.$N/24 dev c0; ip link set c0 up");
    if (::if_nametoindex("c0") == 0) {
        GTEST_SKIP() << "this kernel has no " << GetParam().what;
    }
    run([] {
        while (!socketTo(SOCK_STREAM, peer, tcpSink)) {
            ::poll(nullptr, 0, 10);
        }
    });
    packets.startCaputure();
    const bool isCounting = start().empty();
    serveFor(0.1);
    const std::set<std::string> interfaces = {"lo", "m0", GetParam().isTunnel ? "c0" : "m0"};
    before = NetworkBed::carried(interfaces);
    const Worker& uploader = run([] { tcpSend(peer, 4'000'000); });
    const Worker& downloader = run([] { tcpReceive(peer, 3'000'000); });
    const Worker& caller = run([] { udpSend(peer, 1000, 1200); });
    serveFor(GetParam().isTunnel ? 1.5 : 0.6); // also the owner of what seems to be a tunnel's is looked for
    captured.update();
    pass();
    packets.process();
    const auto now = NetworkBed::carried(interfaces);
    const double carried = now.first - before.first + now.second - before.second;
    const auto expectAccount = [&](const TrafficAccount& total, ProcessStatCollector& table) {
        EXPECT_NEAR(table.processForPid(uploader.pid())->activity().networkUpload.value_or(0), 4e6, 4e5);
        EXPECT_NEAR(table.processForPid(downloader.pid())->activity().networkDownload.value_or(0), 3e6, 3e5);
        EXPECT_NEAR(table.processForPid(caller.pid())->activity().networkUpload.value_or(0), 1.2e6, 1.2e5);
        EXPECT_NEAR(total.processes.linkBytes + total.kernel.linkBytes, carried, carried * 0.02);
        EXPECT_NEAR(total.kernel.linkBytes, GetParam().isTunnel ? carried / 2 : 0, carried * 0.03);
        EXPECT_LT(total.unattributed.linkBytes, carried * 0.01);
    };
    if (isCounting) {
        const testing::ScopedTrace trace(__FILE__, __LINE__, "counted in the kernel");
        expectAccount(counters.total(), processes);
    }
    if (packets.isCapturing() && packets.statistics().dropped == 0) {
        const testing::ScopedTrace trace(__FILE__, __LINE__, "captured");
        expectAccount(packets.total(), captured);
    } else {
        GTEST_SKIP() << "too busy a machine to capture";
    }
}

INSTANTIATE_TEST_SUITE_P(BpfTraffic, StackTest,
    ::testing::Values(
        Standing{"bridges", "ip addr flush dev $I; ip link add c0 type bridge; ip link set $I master c0", false},
        Standing{"VLANs",
            "ip link add link $I name s0 type vlan proto 802.1ad id 100; ip link set s0 up;"
            " ip link add link s0 name c0 type vlan id 10",
            false},
        Standing{"VXLAN", "ip link add c0 type vxlan id 7 dstport 4789 local fd99::$N remote fd99::$O", true},
        Standing{"GRE", "ip link add c0 type gretap local 10.99.0.$N remote 10.99.0.$O", true}));

} // namespace
} // namespace meridal::test
