// SPDX-License-Identifier: Apache-2.0
// What one pass over the process table costs: CPU per process, on the machine as it is. Run it beside a crowd of idle
// processes, for some seconds a case.

#include "platform/linux/processes/BpfProcessSource.h"
#include "platform/linux/processes/ProcProcessSource.h"
#include "platform/linux/processes/TaskStatistics.h"

#include <benchmark/benchmark.h>

namespace meridal {
namespace {

/// CPU time and time on the clock, both: on a virtual machine the one may leave out what the other tells.
void measure(benchmark::State& state, ProcessSource& source, ProcessFields wanted)
{
    std::size_t processes = 0;
    for (auto _ : state) {
        processes += source.readProcesses(wanted).size();
    }
    state.counters["perProcess"] =
        benchmark::Counter(static_cast<double>(processes), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["processes"] = static_cast<double>(processes) / static_cast<double>(state.iterations());
}

enum class Unchanged { Read, AskedByFile, AskedAtOnce };

void pass(benchmark::State& state, ProcessFields wanted, Unchanged unchanged)
{
    ProcProcessOptions options{.skipUnchanged = unchanged != Unchanged::Read};
    if (std::shared_ptr<TaskStatistics> statistics =
            unchanged == Unchanged::AskedAtOnce ? TaskStatistics::open() : nullptr) {
        options.runTimes = [statistics](auto pids, auto& sums) { return statistics->read(pids, sums); };
    }
    ProcProcessSource source("/", std::make_shared<Limitations>(), options);
    for (int i = 0; i < 3; ++i) { // until the table and the stamps are there
        source.readProcesses(wanted);
    }
    measure(state, source, wanted);
    state.counters["takenOver"] = static_cast<double>(source.takenOver()) / state.counters["processes"];
}

void bpfPass(benchmark::State& state, ProcessFields wanted, Result<std::unique_ptr<BpfProcessReader>> (*load)())
{
    auto reader = load();
    if (!reader) {
        state.SkipWithError(reader.error().message.c_str());
        return;
    }
    BpfProcessSource source(std::move(*reader), "/", std::make_shared<Limitations>());
    source.readProcesses(wanted);
    measure(state, source, wanted);
}

BENCHMARK_CAPTURE(pass, AllFields, ProcessFields::All, Unchanged::AskedAtOnce);
BENCHMARK_CAPTURE(pass, AllFieldsAskedByFile, ProcessFields::All, Unchanged::AskedByFile);
BENCHMARK_CAPTURE(pass, AllFieldsReadPlainly, ProcessFields::All, Unchanged::Read);
BENCHMARK_CAPTURE(pass, CpuAndMemory, ProcessFields::Cpu | ProcessFields::Memory, Unchanged::AskedAtOnce);
BENCHMARK_CAPTURE(pass, CpuAndMemoryAskedByFile, ProcessFields::Cpu | ProcessFields::Memory, Unchanged::AskedByFile);
BENCHMARK_CAPTURE(pass, CpuAndMemoryReadPlainly, ProcessFields::Cpu | ProcessFields::Memory, Unchanged::Read);
BENCHMARK_CAPTURE(pass, Cpu, ProcessFields::Cpu, Unchanged::AskedAtOnce);
BENCHMARK_CAPTURE(pass, CpuAskedByFile, ProcessFields::Cpu, Unchanged::AskedByFile);
BENCHMARK_CAPTURE(pass, CpuReadPlainly, ProcessFields::Cpu, Unchanged::Read);

Result<std::unique_ptr<BpfProcessReader>> walk() { return BpfProcessWalk::load(1024); }
BENCHMARK_CAPTURE(bpfPass, WalkAllFields, ProcessFields::All, walk);
BENCHMARK_CAPTURE(bpfPass, WalkCpu, ProcessFields::Cpu, walk);
BENCHMARK_CAPTURE(bpfPass, DumpAllFields, ProcessFields::All, BpfProcessDump::load);

} // namespace
} // namespace meridal

BENCHMARK_MAIN();
