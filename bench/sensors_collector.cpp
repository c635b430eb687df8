// SPDX-License-Identifier: Apache-2.0
// What sensors cost: reading and converting 200 keys of an SMC, and the collector's whole second with 200 items, history and
// its files included. SMC and sensors are in memory: the drivers' own time is not in here.

#include "base/Log.h"
#include "collectors/sensors/SensorsStatCollectorMac.h"
#include "database/HistoryDatabaseController.h"
#include "platform/PlatformController.h"
#include "platform/formats/SMCDataTypes.h"
#include "tests/support/FakeHost.h"
#include "tests/support/FakeSMC.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace meridal {
namespace {

constexpr int sensors = 200;

/// Keys of the types that machines have most, found as fast as a driver finds them.
class TableSMC final : public SMCService {
public:
    TableSMC()
    {
        for (int number = 0; number < sensors; ++number) {
            names.push_back("T" + std::to_string(100 + number));
            keys[test::FakeSMCService::packed(names.back())] = number % 2 == 0;
        }
    }
    bool hasCome() override { return true; }
    Handle findService(std::string_view) override { return 1; }
    void releaseService(Handle) override { }
    IOStatus openService(Handle, std::uint32_t, Handle& connection) override
    {
        connection = 1;
        return IOStatus::Success;
    }
    IOStatus closeService(Handle) override { return IOStatus::Success; }
    IOStatus callScalarMethod(Handle, std::uint32_t) override { return IOStatus::Success; }
    IOStatus callStructMethod(Handle, std::uint32_t, const SMCParamRecord& input, SMCParamRecord& output) override
    {
        ++calls;
        const auto found = keys.find(input.key);
        if (found == keys.end()) {
            output.result = static_cast<std::uint8_t>(SMCResult::KeyNotFound);
            return IOStatus::Success;
        }
        output.dataSize = found->second ? 4 : 2;
        output.dataType = test::FakeSMCService::packed(found->second ? "flt " : "sp78");
        if (found->second) {
            float2Bytes(output.bytes.data(), 40 + static_cast<float>(calls % 32));
        } else {
            output.bytes[0] = static_cast<std::uint8_t>(40 + calls % 32);
        }
        return IOStatus::Success;
    }

    std::vector<std::string> names;
    std::unordered_map<std::uint32_t, bool> keys; ///< whether it is a float
    std::uint64_t calls = 0;
};

/// Sensors that always read something else.
class TableSource final : public SensorSource {
public:
    std::uint64_t generation() override { return 1; }
    std::vector<SensorRecord> sensors() override { return {}; }
    std::vector<SensorReading> read(std::span<const std::string> keys) override
    {
        std::vector<SensorReading> readings;
        for (const std::string& key : keys) {
            const bool isThere = names.contains(key);
            readings.push_back({.isThere = isThere,
                .value = isThere ? std::optional(40 + static_cast<double>(++calls % 32)) : std::nullopt});
        }
        return readings;
    }
    std::map<std::string, SensorFlags> flags() override { return {}; }

    std::unordered_set<std::string> names;
    std::uint64_t calls = 0;
};

/// A machine with 200 sensors that a client has asked for.
struct Bench {
    Bench() : platform(prepared()), collector(machine.context, platform) { }

    Context& prepared()
    {
        auto source = std::make_unique<TableSource>();
        for (const std::string& name : TableSMC().names) {
            source->names.insert(name);
            configurations.push_back({{"key", name}, {"name", "Sensor " + name}});
        }
        machine.host.sensors = std::move(source);
        return machine.context;
    }

    test::FakeMachine machine;
    HistoryDatabaseController databases{machine.context};
    Value configurations = Value::array();
    PlatformController platform;
    SensorsStatCollectorMac collector;
};

void readAndConvert(benchmark::State& state)
{
    TableSMC table;
    SensorSMCController smc(table);
    smc.open();
    const auto readAll = [&] {
        double sum = 0;
        for (const std::string& name : table.names) {
            SMCKeyValue value;
            smc.dataForKey(name, value);
            sum += convertSMCData(value, SMCOrigin::Own);
        }
        benchmark::DoNotOptimize(sum);
    };
    readAll(); // types and sizes are known from here on
    const std::uint64_t before = table.calls;
    for (auto _ : state) {
        readAll();
    }
    state.SetItemsProcessed(state.iterations() * sensors);
    state.counters["callsPerReading"] =
        static_cast<double>(table.calls - before) / static_cast<double>(state.iterations() * sensors);
}

/// Ten minutes of virtual time an iteration, on one thread with everything, SQLite included, once the tables are full.
/// "core" is the share of one core.
void secondsOfSensors(benchmark::State& state)
{
    Bench bench;
    bench.machine.context.databases = &bench.databases;
    SensorsStatCollectorMac& collector = bench.collector;
    collector.setAutomaticSampleUpdates(state.range(0) != 0);
    collector.nameForAll(collector.supportedElectricSensors(bench.configurations), SensorRequest::Sensors);
    collector.begin();
    bench.machine.runtime.advance(4000);
    constexpr double span = 600;
    for (auto _ : state) {
        for (double passed = 0; passed < span; passed += SensorsStatCollectorMac::askedFor) {
            collector.noteQuestion(); // at the rhythm of who looks on
            bench.machine.runtime.advance(SensorsStatCollectorMac::askedFor);
        }
    }
    state.counters["items"] = static_cast<double>(collector.items().size());
    state.counters["core"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * span, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    collector.cleanup();
    bench.databases.closeAll();
}

/// One measurement of all items alone.
void oneMeasurement(benchmark::State& state)
{
    Bench bench;
    SensorsStatCollectorMac& collector = bench.collector;
    collector.nameForAll(collector.supportedElectricSensors(bench.configurations), SensorRequest::Sensors);
    for (auto _ : state) {
        collector.updateStats();
    }
    state.SetItemsProcessed(state.iterations() * sensors);
}

BENCHMARK(readAndConvert)->Unit(benchmark::kMicrosecond);
BENCHMARK(oneMeasurement)->Unit(benchmark::kMicrosecond);
BENCHMARK(secondsOfSensors)->ArgName("history")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace meridal

BENCHMARK_MAIN();
