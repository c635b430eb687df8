// SPDX-License-Identifier: Apache-2.0
// What per-process traffic costs: frames a second from the decoder to the fold, and a tick beside thousands of open
// sockets.

#include "collectors/process/FlowTable.h"
#include "collectors/process/NetworkStatisticsStatCollector.h"
#include "collectors/process/PacketStatCollector.h"
#include "collectors/process/ProcessStatCollector.h"
#include "platform/linux/traffic/DiagSocketOwners.h"
#include "platform/linux/traffic/LinuxTraffic.h"
#include "tests/support/FakeHost.h"
#include "tests/support/FrameBytes.h"
#include "tests/support/VirtualRuntime.h"

#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace meridal {
namespace {

using test::Frame;

/// Knows everybody at once.
class KnownOwners final : public SocketOwners {
public:
    void beginBatch() override { }
    SocketOwner ownerOf(const SocketFlow& flow) override
    {
        return {SocketOwner::Kind::Process, flow.localPort % 50 + 1};
    }
    bool search() override { return false; }
};

/// Frames of so many flows, in trains of four.
std::vector<Frame> framesOf(int flows)
{
    std::vector<Frame> frames;
    for (int flow = 0; flow < flows; ++flow) {
        const Frame ports =
            test::joined({test::big16(static_cast<unsigned>(1024 + flow)), test::hex("01bb"), Frame(16)});
        const auto direction = static_cast<std::uint8_t>(flow % 2 == 0 ? 4 : 0);
        for (int i = 0; i < 4; ++i) {
            frames.push_back(test::cooked2(0x0800, direction, test::joined({test::ipv4(6, 1500), ports})));
        }
    }
    return frames;
}

/// From the decoder to the process items; one fold for each 20 batches of 5,000 frames.
void framesToFold(benchmark::State& state)
{
    test::FakeMachine machine;
    for (std::int32_t pid = 1; pid <= 50; ++pid) {
        machine.processes().set({.pid = pid, .startIdentity = 1, .name = "worker"});
    }
    machine.packetTap().owners = [] { return std::make_unique<KnownOwners>(); };
    ProcessStatCollector processes(machine.context);
    processes.update();
    PacketStatCollector packets(machine.context, processes);
    packets.startCaputure();
    const std::vector<Frame> frames = framesOf(static_cast<int>(state.range(0)));
    std::vector<CapturedFrame> batch;
    for (std::size_t i = 0; i < 5000; ++i) {
        batch.push_back(test::captured(LinkType::LinuxCooked2, frames[i % frames.size()], 1520));
    }
    for (auto _ : state) {
        for (int i = 0; i < 20; ++i) {
            machine.runtime.advance(0.1);
            machine.packetTap().deliver(batch);
        }
        packets.process();
    }
    state.SetItemsProcessed(state.iterations() * 20 * 5000);
}
BENCHMARK(framesToFold)->Arg(1)->Arg(100)->Arg(1250);

/// The fold alone, after a run of any length.
void foldAfterHistory(benchmark::State& state)
{
    TrafficBatch history;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        PacketRecord record;
        record.pid = static_cast<std::int32_t>(i % 50);
        record.downloadBytes = 1500;
        history.add(record);
    }
    for (auto _ : state) {
        TrafficBatch fold;
        fold.add(history);
        benchmark::DoNotOptimize(fold);
    }
}
BENCHMARK(foldAfterHistory)->Arg(1'000)->Arg(1'000'000);

/// Connections within this machine: two sockets each.
class OpenSockets {
public:
    explicit OpenSockets(int connections)
    {
        rlimit limit{};
        ::getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
        const int listening = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        ::bind(listening, reinterpret_cast<const sockaddr*>(&address), size);
        ::listen(listening, 100);
        ::getsockname(listening, reinterpret_cast<sockaddr*>(&address), &size);
        sockets_.push_back(listening);
        for (int i = 0; i < connections; ++i) {
            sockets_.push_back(::socket(AF_INET, SOCK_STREAM, 0));
            ::connect(sockets_.back(), reinterpret_cast<const sockaddr*>(&address), size);
            sockets_.push_back(::accept(listening, nullptr, nullptr));
        }
    }
    ~OpenSockets()
    {
        for (const int socket : sockets_) {
            ::close(socket);
        }
    }
    OpenSockets(const OpenSockets&) = delete;
    OpenSockets& operator=(const OpenSockets&) = delete;

private:
    std::vector<int> sockets_;
};

/// One tick of the kernel's counters with 10,000 sockets of one process.
void tickOfCounters(benchmark::State& state)
{
    const OpenSockets sockets(static_cast<int>(state.range(0)) / 2);
    test::FakeMachine machine;
    machine.host.networkStatistics = makeDiagNetworkStatistics(machine.runtime, "/");
    ProcessStatCollector processes(machine.context);
    NetworkStatisticsStatCollector statistics(machine.context, processes);
    if (!statistics.start()) {
        state.SkipWithError("no sock_diag");
        return;
    }
    for (int i = 0; i < 20; ++i) { // until all owners are known
        machine.runtime.advance(2);
        statistics.updateStats();
    }
    for (auto _ : state) {
        machine.runtime.advance(2);
        statistics.updateStats();
    }
    state.counters["sources"] = static_cast<double>(statistics.connectionItems());
}
BENCHMARK(tickOfCounters)->Arg(100)->Arg(10'000)->Unit(benchmark::kMillisecond);

/// One question to the socket tables and its process, among as many sockets.
void ownerOfAFlow(benchmark::State& state)
{
    const OpenSockets sockets(static_cast<int>(state.range(0)) / 2);
    SocketDiag diag;
    std::vector<SocketFlow> flows;
    diag.dump(
        IPPROTO_TCP, false, SocketDiag::Counts::No, [&](const DiagSocket& socket) { flows.push_back(socket.flow); });
    DiagSocketOwners owners("/");
    std::size_t next = 0;
    for (auto _ : state) {
        if (next % 500 == 0) {
            owners.beginBatch();
            owners.search();
        }
        benchmark::DoNotOptimize(owners.ownerOf(flows[next++ % flows.size()]));
    }
}
BENCHMARK(ownerOfAFlow)->Arg(100)->Arg(10'000);

} // namespace
} // namespace meridal

BENCHMARK_MAIN();
