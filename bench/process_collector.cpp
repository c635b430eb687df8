// SPDX-License-Identifier: Apache-2.0
// What one update of the process collector costs, per process and with every list wanted: reading the table, the whole
// pass, building the five lists. `allocations` counts calls of operator new per iteration: a steady pass makes none.

#include "collectors/process/GroupAccumulator.h"
#include "collectors/process/ProcessStatCollector.h"

#include "base/Log.h"
#include "base/NotificationCenter.h"
#include "base/Value.h"
#include "bench/SyntheticProcesses.h"
#include "platform/linux/processes/ProcProcessSource.h"
#include "tests/support/FakeHost.h"

#include <benchmark/benchmark.h>

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

namespace {

std::uint64_t allocations = 0;
std::size_t heapBytes = 0; // in use

void* allocate(std::size_t size)
{
    ++allocations;
    if (void* memory = std::malloc(size)) {
        heapBytes += malloc_usable_size(memory);
        return memory;
    }
    throw std::bad_alloc();
}

void release(void* memory)
{
    heapBytes -= malloc_usable_size(memory);
    std::free(memory);
}

} // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { release(memory); }

namespace meridal {
namespace {

/// Idle processes that make the real table as long as wanted.
class Crowd {
public:
    explicit Crowd(std::int64_t count)
    {
        for (std::int64_t index = 0; index < count; ++index) {
            const pid_t pid = fork();
            if (pid == 0) {
                for (;;) {
                    pause();
                }
            }
            if (pid > 0) {
                pids_.push_back(pid);
            }
        }
    }
    ~Crowd()
    {
        for (const pid_t pid : pids_) {
            kill(pid, SIGKILL);
        }
        for (const pid_t pid : pids_) {
            waitpid(pid, nullptr, 0);
        }
    }
    Crowd(const Crowd&) = delete;
    Crowd& operator=(const Crowd&) = delete;

private:
    std::vector<pid_t> pids_;
};

/// Until everybody's recent past is there.
constexpr int passesBefore = 100;

/// A collector that has been in use for some passes.
struct Rig {
    Rig(std::unique_ptr<ProcessSource> source, int passes)
    {
        machine.host.processes = std::move(source);
        collector = std::make_unique<ProcessStatCollector>(machine.context);
        collector->setUpdateMask(31);
        const std::size_t before = heapBytes;
        for (int pass = 0; pass < passes; ++pass) {
            update();
        }
        collectorBytes = heapBytes - before;
    }
    /// On a synthetic table.
    explicit Rig(const benchmark::State& state)
        : Rig(std::make_unique<SyntheticProcesses>(
                  static_cast<std::size_t>(state.range(0)), static_cast<std::size_t>(state.range(1))),
            passesBefore)
    {
    }
    void update()
    {
        machine.runtime.advance(2);
        collector->update();
    }

    test::FakeMachine machine;
    std::unique_ptr<ProcessStatCollector> collector;
    std::size_t collectorBytes = 0; ///< of heap that its passes took
};

/// Runs the task per iteration and reports its cost per process and its allocations.
template <typename Task>
void measure(benchmark::State& state, Task task)
{
    const std::uint64_t before = allocations;
    for (auto _ : state) {
        task();
    }
    const auto iterations = static_cast<double>(state.iterations());
    state.counters["allocations"] = static_cast<double>(allocations - before) / iterations;
    state.counters["per_process"] = benchmark::Counter(
        iterations * static_cast<double>(state.range(0)), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void read(benchmark::State& state)
{
    Rig rig(state);
    measure(state, [&] { benchmark::DoNotOptimize(rig.machine.host.processes->readProcesses(ProcessFields::All)); });
}

void pass(benchmark::State& state)
{
    Rig rig(state);
    measure(state, [&] { rig.update(); });
    state.counters["bytes_per_process"] = static_cast<double>(rig.collectorBytes) / static_cast<double>(state.range(0));
}

/// The same, and what all applications have used is added up.
void passWithGroups(benchmark::State& state)
{
    Rig rig(state);
    const std::size_t before = heapBytes;
    GroupAccumulator groups(rig.machine.context, *rig.collector);
    const auto both = [&] {
        rig.update();
        groups.update();
    };
    for (int pass = 0; pass < passesBefore; ++pass) {
        both();
    }
    const std::size_t bytes = heapBytes - before;
    measure(state, both);
    state.counters["groups"] = static_cast<double>(groups.totals().size());
    state.counters["bytes_per_process"] = static_cast<double>(bytes) / static_cast<double>(state.range(0));
}

void readOfThisMachine(benchmark::State& state)
{
    const Crowd crowd(state.range(0));
    Rig rig(std::make_unique<ProcProcessSource>("/", std::make_shared<Limitations>()), 20);
    measure(state, [&] { benchmark::DoNotOptimize(rig.machine.host.processes->readProcesses(ProcessFields::All)); });
}

void passOfThisMachine(benchmark::State& state)
{
    const Crowd crowd(state.range(0));
    Rig rig(std::make_unique<ProcProcessSource>("/", std::make_shared<Limitations>()), 20);
    measure(state, [&] { rig.update(); });
    state.counters["processes"] = static_cast<double>(rig.collector->processCount());
}

void fiveLists(benchmark::State& state)
{
    Rig rig(state);
    const ProcessView view{.grouped = state.range(2) != 0};
    measure(state, [&] {
        benchmark::DoNotOptimize(rig.collector->cpuProcesses(view));
        benchmark::DoNotOptimize(rig.collector->memoryProcesses(view));
        benchmark::DoNotOptimize(rig.collector->diskActivityProcesses(view));
        benchmark::DoNotOptimize(rig.collector->networkProcesses(view, {}));
        benchmark::DoNotOptimize(rig.collector->powerProcesses(view));
    });
}

/// The one list without a limit.
void energyList(benchmark::State& state)
{
    Rig rig(state);
    measure(state, [&] { benchmark::DoNotOptimize(rig.collector->powerProcesses({})); });
}

void energyRanking(benchmark::State& state)
{
    Rig rig(state);
    ProcessRanking ranking;
    measure(state, [&] {
        ranking.sum(rig.collector->table(), {}, {&ProcessFigure::power, 1});
        for (const ProcessRanking::Row& row : ranking.first(0, unlimitedProcesses)) {
            benchmark::DoNotOptimize(rig.collector->sharingNameForProcess(*row.item, false));
        }
    });
}

void rebuildGroups(benchmark::State& state)
{
    Rig rig(state);
    measure(state, [&] { rig.collector->createHierarchy2(); });
}

// Processes, and of how many one works in every pass.
BENCHMARK(read)->ArgsProduct({{100, 1000, 5000, 50000}, {10}});
BENCHMARK(pass)->ArgsProduct({{100, 1000, 5000, 50000}, {10}})->Args({1000, 1});
BENCHMARK(passWithGroups)->ArgsProduct({{100, 1000, 5000, 50000}, {10}})->Args({1000, 1});
BENCHMARK(readOfThisMachine)->Arg(100)->Arg(1000)->Arg(5000);
BENCHMARK(passOfThisMachine)->Arg(100)->Arg(1000)->Arg(5000);
BENCHMARK(rebuildGroups)->ArgsProduct({{100, 1000, 5000, 50000}, {10}});
BENCHMARK(energyRanking)->ArgsProduct({{5000, 50000}, {10}});
BENCHMARK(energyList)->ArgsProduct({{5000, 50000}, {10}});
BENCHMARK(fiveLists)->ArgsProduct({{100, 1000, 5000, 50000}, {10}, {0, 1}});

} // namespace
} // namespace meridal

BENCHMARK_MAIN();
