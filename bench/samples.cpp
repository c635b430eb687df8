// What the sample store costs: a sample added, an average taken. The counters tell allocations per operation; in steady
// state adding and averaging must not make any (the averages' dictionary, made once a period, does).

#include "base/Log.h"
#include "base/NotificationCenter.h"
#include "collectors/StatCollector.h"
#include "collectors/StatCollectorItem.h"
#include "platform/Context.h"
#include "platform/host/Host.h"
#include "tests/support/VirtualRuntime.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <new>

namespace {
std::size_t allocations = 0; // benchmarks run on one thread
}

// Not inlined: GCC takes a malloc seen next to a delete for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size)
{
    ++allocations;
    if (void* memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace meridal {
namespace {

struct Machine {
    VirtualRuntime runtime;
    Host host;
    NotificationCenter notifications;
    Log log;
    Context context{runtime, host, notifications, log, Paths::underRoot("unused")};
};

Dictionary configuration()
{
    return {{"addSampleMap", {{"cpu", 0}, {"memory", 1}, {"read", 2}, {"write", 3}}}, {"addSampleIDKeys", {"sample"}},
        {"sampleKeys", {{"c", 0}, {"m", 1}, {"r", 2}, {"w", 3}}}};
}

StatCollectorTraits traitsOf(std::size_t slots)
{
    return {.sampleCount = 4, .layout = {.storages = 2, .slots = {slots, 1}}};
}

/// Runs one operation over and over and reports its allocations.
template <typename Operation>
void measure(benchmark::State& state, Operation operation)
{
    operation();
    const std::size_t before = allocations;
    for (auto _ : state) {
        operation();
    }
    state.counters["allocations"] =
        benchmark::Counter(static_cast<double>(allocations - before), benchmark::Counter::kAvgIterations);
}

void addToCollector(benchmark::State& state)
{
    Machine machine;
    StatCollector collector(machine.context, traitsOf(static_cast<std::size_t>(state.range(0))));
    collector.config() = configuration();
    Dictionary sample{{"cpu", 1.5}, {"memory", 2e9}, {"read", 3}, {"write", 4}, {"time", 0.0}};
    double& time = sample["time"].get_ref<double&>();
    measure(state, [&] {
        time += 1;
        collector.addSample(sample, StorageIndex::Live);
    });
}
BENCHMARK(addToCollector)->Arg(1)->Arg(6)->Arg(365);

void addToItem(benchmark::State& state)
{
    Machine machine;
    StatCollectorItem item(machine.context, 4, traitsOf(static_cast<std::size_t>(state.range(0))).layout);
    item.config() = configuration();
    const Dictionary sample{{"cpu", 1.5}, {"memory", 2e9}, {"read", 3}, {"write", 4}, {"time", 7.0}};
    measure(state, [&] { item.addSample(sample, StorageIndex::Live); });
}
BENCHMARK(addToItem)->Arg(1)->Arg(365);

SampleRing filledRing(std::size_t slots)
{
    SampleRing ring(slots, 4);
    for (std::size_t slot = 0; slot < slots; ++slot) {
        ring.setLabel(SlotIndex{slot}, slots - slot, static_cast<double>(slots - slot));
        ring.setEmpty(SlotIndex{slot}, 0);
        ring.setValue(SlotIndex{slot}, 0, 1.0);
    }
    return ring;
}

void average(benchmark::State& state)
{
    const SampleRing ring = filledRing(static_cast<std::size_t>(state.range(0)));
    measure(state, [&] { benchmark::DoNotOptimize(ring.averages({.start = 0, .end = 1e9})); });
}
BENCHMARK(average)->Arg(1)->Arg(6)->Arg(365);

void threshold(benchmark::State& state)
{
    const SampleRing ring = filledRing(static_cast<std::size_t>(state.range(0)));
    const std::size_t indexes[] = {0, 1};
    const ThresholdQuery query{.indexes = indexes, .threshold = 50, .seconds = 1e6, .now = 0};
    measure(state, [&] { benchmark::DoNotOptimize(ring.below(query)); });
}
BENCHMARK(threshold)->Arg(6)->Arg(365);

void averagesDictionaryOfAPeriod(benchmark::State& state)
{
    Machine machine;
    StatCollector collector(machine.context, traitsOf(6));
    collector.config() = configuration();
    measure(state, [&] { benchmark::DoNotOptimize(collector.averagesForIndex(StorageIndex::Hour)); });
}
BENCHMARK(averagesDictionaryOfAPeriod);

} // namespace
} // namespace meridal

BENCHMARK_MAIN();
