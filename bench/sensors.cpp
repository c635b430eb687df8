// SPDX-License-Identifier: Apache-2.0
// Reading 200 sensors of hwmon chips: 10 chips with 20 temperatures each, in files in memory.

#include "base/AsioRuntime.h"
#include "platform/linux/sensors/HwmonReader.h"
#include "platform/linux/sensors/HwmonSensors.h"
#include "tests/support/TemporaryTree.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

namespace meridal {
namespace {

constexpr int chips = 10;
constexpr int channelsOfAChip = 20;

struct Machine {
    Machine() : tree(test::TemporaryTree::Place::Memory)
    {
        for (int chip = 0; chip < chips; ++chip) {
            const std::string folder = "sys/class/hwmon/hwmon" + std::to_string(chip) + "/";
            tree.write(folder + "name", "bench" + std::to_string(chip) + "\n");
            for (int channel = 1; channel <= channelsOfAChip; ++channel) {
                tree.write(folder + "temp" + std::to_string(channel) + "_input", std::to_string(40'000 + channel));
            }
        }
        sensors = std::make_unique<HwmonSensors>(runtime, HwmonOptions{.root = tree.root()});
        for (const SensorRecord& sensor : sensors->sensors()) {
            keys.push_back(sensor.key);
        }
    }

    test::TemporaryTree tree;
    AsioRuntime runtime;
    std::unique_ptr<HwmonSensors> sensors;
    std::vector<std::string> keys;
};

/// The files themselves, on the thread that asks.
void readFiles(benchmark::State& state)
{
    const Machine machine;
    std::vector<HwmonReader::File> files;
    for (int channel = 1; channel <= channelsOfAChip; ++channel) {
        files.push_back({.name = "temp" + std::to_string(channel) + "_input", .fault = {}, .units = 1000});
    }
    std::vector<std::unique_ptr<HwmonReader>> readers;
    for (int chip = 0; chip < chips; ++chip) {
        readers.push_back(std::make_unique<HwmonReader>(
            machine.tree.root() / ("sys/class/hwmon/hwmon" + std::to_string(chip)), files, std::filesystem::path()));
    }
    double now = 0;
    for (auto _ : state) {
        now += 1;
        for (const auto& reader : readers) {
            for (std::size_t file = 0; file < files.size(); ++file) {
                reader->want(file, now, 0.2);
            }
            reader->beginReading(now);
            reader->read(now);
            benchmark::DoNotOptimize(reader->latest(0, now));
        }
    }
    state.SetItemsProcessed(state.iterations() * chips * channelsOfAChip);
}
BENCHMARK(readFiles)->UseRealTime();

/// A collector's round: every key once, a quarter of a second after the last round so that all are read anew.
void readKeys(benchmark::State& state)
{
    Machine machine;
    for (auto _ : state) {
        state.PauseTiming();
        const double until = machine.runtime.monotonicTime() + 0.25;
        while (machine.runtime.monotonicTime() < until) { }
        state.ResumeTiming();
        benchmark::DoNotOptimize(machine.sensors->read(machine.keys));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(machine.keys.size()));
}
BENCHMARK(readKeys)->Iterations(20)->UseRealTime();

/// A second question within the same round: answered without reading.
void readKeysAgain(benchmark::State& state)
{
    Machine machine;
    for (auto _ : state) {
        benchmark::DoNotOptimize(machine.sensors->read(machine.keys));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(machine.keys.size()));
}
BENCHMARK(readKeysAgain)->UseRealTime();

} // namespace
} // namespace meridal

BENCHMARK_MAIN();
