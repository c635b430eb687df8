// What one pass over the process table costs: CPU per process, on the machine as it is. Run it beside a crowd of idle
// processes, for some seconds a case.

#include "platform/linux/ProcProcessSource.h"

#include <benchmark/benchmark.h>

namespace meridal {
namespace {

void pass(benchmark::State& state, ProcessFields wanted, bool skipUnchanged)
{
    ProcProcessSource source("/", std::make_shared<Limitations>(), {.skipUnchanged = skipUnchanged, .only = {}});
    for (int i = 0; i < 3; ++i) { // until the table and the stamps are there
        source.readProcesses(wanted);
    }
    std::size_t processes = 0;
    std::size_t takenOver = 0;
    for (auto _ : state) {
        processes += source.readProcesses(wanted).size();
        takenOver += source.takenOver();
    }
    state.counters["perProcess"] =
        benchmark::Counter(static_cast<double>(processes), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["processes"] = static_cast<double>(processes) / static_cast<double>(state.iterations());
    state.counters["takenOver"] = static_cast<double>(takenOver) / static_cast<double>(processes);
}

BENCHMARK_CAPTURE(pass, AllFields, ProcessFields::All, true);
BENCHMARK_CAPTURE(pass, AllFieldsReadPlainly, ProcessFields::All, false);
BENCHMARK_CAPTURE(pass, CpuAndMemory, ProcessFields::Cpu | ProcessFields::Memory, true);
BENCHMARK_CAPTURE(pass, CpuAndMemoryReadPlainly, ProcessFields::Cpu | ProcessFields::Memory, false);
BENCHMARK_CAPTURE(pass, Cpu, ProcessFields::Cpu, true);
BENCHMARK_CAPTURE(pass, CpuReadPlainly, ProcessFields::Cpu, false);

} // namespace
} // namespace meridal

BENCHMARK_MAIN();
