// SPDX-License-Identifier: Apache-2.0
// What the disks of a large machine cost each time they are read: parsing the pages of 64 of them, taking the figures into
// the items, and building what clients get of key 64. Disks with 30 attributes each, as they have at most.

#include "collectors/disks/SMARTStatCollector.h"
#include "tests/support/FakeHost.h"
#include "tests/support/SMARTPageBuilder.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>

namespace meridal::test {
namespace {

constexpr int diskCount = 64;

/// The 30 that disks of several vendors have.
constexpr std::uint8_t attributeIDs[] = {1, 2, 3, 4, 5, 7, 8, 9, 10, 11, 12, 170, 171, 172, 173, 174, 183, 184, 187,
    188, 189, 190, 191, 192, 193, 194, 197, 198, 199, 241};

std::vector<TestAttribute> thirtyAttributes()
{
    std::vector<TestAttribute> attributes;
    for (const std::uint8_t attributeID : attributeIDs) {
        attributes.push_back({.attributeID = attributeID, .flags = 0x33, .raw = 0x0012'3456'789A, .threshold = 10});
    }
    return attributes;
}

void parsePages(benchmark::State& state)
{
    const SMARTPage data = dataPage(thirtyAttributes());
    const SMARTPage thresholds = thresholdPage(thirtyAttributes());
    const SMARTPage health = healthPage({});
    for (auto _ : state) {
        for (int disk = 0; disk < diskCount; ++disk) {
            benchmark::DoNotOptimize(parseSMARTData(data));
            benchmark::DoNotOptimize(parseSMARTThresholds(thresholds));
            benchmark::DoNotOptimize(parseNVMeHealth(health));
        }
    }
}
BENCHMARK(parsePages)->Unit(benchmark::kMicrosecond);

/// A machine whose disks have been read once.
struct Server {
    Server()
    {
        for (int number = 0; number < diskCount; ++number) {
            const std::string path = "disk" + std::to_string(number);
            auto disk = std::make_shared<FakeDisk>();
            disk->record = {.path = path, .model = "Disk", .serial = path, .blockDevice = path};
            disk->data = dataPage(thirtyAttributes());
            disk->thresholds = thresholdPage(thirtyAttributes());
            machine.disks().plugged.push_back(std::move(disk));
        }
        collector.setLoadAllAttributes(true);
        collector.loadDisks();
        machine.runtime.runDue();
    }
    FakeMachine machine;
    SMARTStatCollector collector{machine.context};
};

void takeReadings(benchmark::State& state)
{
    Server server;
    SMARTReading reading;
    reading.power = DiskPower::Awake;
    reading.data = parseSMARTData(dataPage(thirtyAttributes()));
    reading.failing = false;
    const auto disks = server.collector.disks();
    for (auto _ : state) {
        for (const auto& disk : disks) {
            disk->update(reading, 1);
        }
    }
}
BENCHMARK(takeReadings)->Unit(benchmark::kMicrosecond);

void buildStatus(benchmark::State& state)
{
    Server server;
    for (auto _ : state) {
        benchmark::DoNotOptimize(server.collector.diskStatus());
    }
}
BENCHMARK(buildStatus)->Unit(benchmark::kMicrosecond);

void encodeStatus(benchmark::State& state)
{
    Server server;
    const Value status = server.collector.diskStatus();
    std::size_t size = 0;
    for (auto _ : state) {
        size = serialise(status).size();
    }
    state.counters["bytes"] = static_cast<double>(size);
}
BENCHMARK(encodeStatus)->Unit(benchmark::kMicrosecond);

} // namespace
} // namespace meridal::test

BENCHMARK_MAIN();
