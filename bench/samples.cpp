// SPDX-License-Identifier: Apache-2.0
// What the sample store costs: a sample added, an average taken. The counters tell allocations per operation; in steady
// state adding and averaging must not make any.

#include "history/SampleStorages.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>
#include <new>
#include <optional>

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

void addToItem(benchmark::State& state)
{
    SampleStorages item(4);
    const std::array<std::optional<double>, 4> sample = {1.5, 2e9, 3, 4};
    measure(state, [&] { item.addSample(7, sample); });
}
BENCHMARK(addToItem);

SampleRing filledRing(std::size_t slots)
{
    SampleRing ring(slots, 4);
    for (std::uint64_t sampleID = 1; sampleID <= slots; ++sampleID) {
        ring.push(sampleID, static_cast<double>(sampleID), std::array{1.0, 0.0, 0.0, 0.0});
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

void averagesOfAPeriod(benchmark::State& state)
{
    const SampleStorages samples(4);
    measure(state, [&] { benchmark::DoNotOptimize(samples.averagesForIndex(StorageIndex::Hour, 1000)); });
}
BENCHMARK(averagesOfAPeriod);

} // namespace
} // namespace meridal

BENCHMARK_MAIN();
