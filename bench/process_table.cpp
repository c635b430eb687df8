// SPDX-License-Identifier: Apache-2.0
// What a client costs that shows the fifty processes which use the most: a pass over the process table with it and without, over
// an invented table, of which every tenth process works, and over this machine's. To be compared: the second divided by the first.

#include "base/NotificationCenter.h"
#include "bench/SyntheticProcesses.h"
#include "collectors/process/GroupAccumulator.h"
#include "collectors/process/NetworkStatisticsStatCollector.h"
#include "collectors/process/PacketStatCollector.h"
#include "collectors/process/ProcessStatCollector.h"
#include "collectors/process/TrafficCounterCollector.h"
#include "daemon/MeridalHistory.h"
#include "daemon/ProcessTableService.h"
#include "daemon/TrafficService.h"
#include "daemon/Watches.h"
#include "platform/linux/processes/ProcInspection.h"
#include "platform/linux/processes/ProcProcessSource.h"
#include "platform/linux/processes/ProcessSourceChoice.h"
#include "tests/support/FakeClient.h"
#include "tests/support/FakeHost.h"
#include "wire/Methods.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace meridal {
namespace {

constexpr std::size_t everyBusy = 10;

struct InventedArguments final : ProcessInspection {
    std::optional<std::string> arguments(std::int32_t pid) override
    {
        return "/usr/lib/some/program --with=" + std::to_string(pid) + " --and some more of them";
    }
};

/// What the daemon does in a pass, with a table that may be watched.
struct TableRig {
    explicit TableRig(std::unique_ptr<ProcessSource> source, std::unique_ptr<ProcessInspection> inspection)
    {
        machine.host.processes = std::move(source);
        machine.host.processInspection = std::move(inspection);
        collector.setUpdateMask(everyFigure);
        table.addTo(methods, watches,
            {.pass = [this] { pass(); },
                .viewerOf = [](const Peer&) { return std::nullopt; },
                .viewOf = [](const auto&, bool grouped) { return ProcessView{.grouped = grouped}; }});
    }
    void pass()
    {
        collector.update();
        groups.update();
        table.passed();
    }
    /// And what a watcher is told after it.
    void passAndTell()
    {
        machine.runtime.advance(2);
        pass();
        machine.runtime.runDue();
        told += client->received.size();
        client->received.clear();
    }
    void watch(const Value& parameters)
    {
        methods.call(method::processesWatch, parameters, {client->peer(), client}, [](const Result<Value>& answer) {
            if (!answer) {
                std::abort();
            }
        });
        machine.runtime.runDue();
    }

    static constexpr std::uint32_t everyFigure = 1 | 2 | 4 | 16;
    test::FakeMachine machine;
    ProcessStatCollector collector{machine.context};
    GroupAccumulator groups{machine.context, collector};
    TrafficCounterCollector counters{machine.context, collector};
    PacketStatCollector packets{machine.context, collector};
    NetworkStatisticsStatCollector statistics{machine.context, collector};
    TrafficService traffic{machine.context, {counters, packets, statistics}};
    MeridalHistory methods{machine.runtime.mainQueue()};
    ProcessTableService table{machine.context, collector, traffic};
    Watches watches{machine.runtime, methods};
    std::shared_ptr<test::FakeClient> client = std::make_shared<test::FakeClient>();
    std::size_t told = 0;
};

Value parametersOf(std::int64_t kind)
{
    Value parameters = {
        {"limit", 50}, {"columns", {"user", "cpu", "footprint", "threads", "state", "command", "name"}}};
    if (kind == 2) {
        parameters["grouped"] = true;
    } else if (kind == 3) {
        parameters["filter"] = {{"regex", true}, {"command", "with=[0-9]*7 "}};
    } else if (kind == 4) {
        parameters.erase("columns"); // all there are
    }
    return parameters;
}

void measure(benchmark::State& state, TableRig& rig)
{
    for (int pass = 0; pass < 40; ++pass) { // until everybody's recent past is there
        rig.passAndTell();
    }
    if (state.range(1) > 0) {
        rig.watch(parametersOf(state.range(1)));
    }
    rig.passAndTell();
    rig.told = 0;
    for (auto _ : state) {
        rig.passAndTell();
    }
    state.counters["told"] = static_cast<double>(rig.told) / static_cast<double>(state.iterations());
    state.counters["processes"] = static_cast<double>(rig.collector.processCount());
}

void invented(benchmark::State& state)
{
    TableRig rig(std::make_unique<SyntheticProcesses>(static_cast<std::size_t>(state.range(0)), everyBusy),
        std::make_unique<InventedArguments>());
    measure(state, rig);
}

void ofThisMachine(benchmark::State& state)
{
    auto limitations = std::make_shared<Limitations>();
    auto source = state.range(0) != 0 ? chooseProcessSource("/", limitations, {})
                                      : std::make_unique<ProcProcessSource>("/", limitations);
    state.SetLabel(std::string(source->method()));
    TableRig rig(std::move(source), std::make_unique<ProcInspection>("/"));
    measure(state, rig);
}

// Processes; without a watcher, with one, one of groups, one with a pattern on command lines, one of all columns.
BENCHMARK(invented)->ArgsProduct({{1000, 5000, 50000}, {0, 1, 2, 3, 4}})->Unit(benchmark::kMicrosecond);
// /proc or the best there is; likewise.
BENCHMARK(ofThisMachine)->ArgsProduct({{0, 1}, {0, 1}})->Unit(benchmark::kMicrosecond);

} // namespace
} // namespace meridal

BENCHMARK_MAIN();
