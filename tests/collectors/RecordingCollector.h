#pragma once

#include "collectors/StatCollector.h"
#include "collectors/StatCollectorItem.h"
#include "tests/support/FakeHost.h"

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace meridal::test {

constexpr auto live = StorageIndex::Live;
constexpr SlotIndex newest{0};

/// A configuration whose values a, b, c sit in slots 0 to 2, and whose identifiers come as "id" or "sample".
inline Dictionary simpleConfiguration()
{
    return {{"addSampleMap", {{"a", 0}, {"b", 1}, {"c", 2}, {"when", -1}, {"beyond", 40}}},
        {"addSampleIDKeys", {"id", "sample"}}, {"sampleKeys", {{"A", 0}, {"B", 1}, {"C", 2}, {"Beyond", 40}}},
        {"emptySampleKeys", {"a", "b"}}};
}

/// Tables with one value.
inline Dictionary historyConfiguration(StorageType type)
{
    Dictionary config{{"addSampleMap", {{"value", 0}}}, {"addSampleIDKeys", {"sample"}}, {"sampleKeys", {{"value", 0}}},
        {"emptySampleKeys", {"value"}}};
    if (type == StorageType::Collector) {
        config["sqlCreate"] = "CREATE TABLE %@ (sample INTEGER PRIMARY KEY, time REAL, empty INTEGER, value REAL)";
        config["sqlInsert"] = "INSERT INTO %@ VALUES (?, ?, ?, ?)";
        config["sqlInsertKeys"] = {"sample", "time", "empty", "value"};
    } else {
        config["sqlCreateID"] = "CREATE TABLE %@ (sample INTEGER PRIMARY KEY, time REAL)";
        config["sqlInsert"] = "INSERT INTO %@ VALUES (?, ?)";
        config["sqlInsertKeys"] = {"sample", "time"};
        config["sqlCreate"] = "CREATE TABLE %@ (sample INTEGER, uuid TEXT, time REAL, value REAL, "
                              "PRIMARY KEY (sample, uuid)) WITHOUT ROWID";
        config["sqlInsertItem"] = "INSERT INTO %@ VALUES (?, ?, ?, ?)";
        config["sqlInsertItemKeys"] = {"sample", "uuid", "time", "value"};
    }
    return config;
}

/// A collector that writes down what the base asks of it.
class RecordingCollector final : public StatCollector {
public:
    struct Insert {
        StorageIndex index;
        Dictionary sample;
    };

    explicit RecordingCollector(FakeMachine& machine, StatCollectorTraits traits = {})
        : StatCollector(machine.context, traits), machine_(machine), traits_(std::move(traits))
    {
        config() = simpleConfiguration();
    }

    using StatCollector::mutableItems;
    using StatCollector::storage;
    sampleindexconfig& record(StorageIndex index) { return storage(index)->record; }

    void updateStatsForSequence(std::int64_t sequence) override
    {
        turns.emplace_back(machine_.runtime.wallTime(), sequence);
        if (during) {
            during();
        }
    }
    void updateHistory() override { ++historyTurns; }
    bool threadedUpdating() const override { return threaded; }
    std::shared_ptr<StatCollectorItem> makeItem() override
    {
        return std::make_shared<StatCollectorItem>(context(), traits_.sampleCount, traits_.layout);
    }
    void insertSampleIntoTableAtIndex(const Dictionary& sample, StorageIndex index) override
    {
        inserts.push_back({index, sample});
    }
    void addLongTermSample(const Dictionary&) override { ++longTermSamples; }
    void runDatabaseQueue() override { ++commits; }

    std::vector<std::pair<double, std::int64_t>> turns; ///< wall time and sequence
    std::function<void()> during;                       ///< runs inside each measurement
    std::vector<Insert> inserts;
    int longTermSamples = 0;
    int historyTurns = 0;
    int commits = 0;
    bool threaded = false;

private:
    FakeMachine& machine_;
    StatCollectorTraits traits_;
};

inline StatCollectorTraits ringOf(std::size_t slots, std::size_t values = 3)
{
    return {.description = "Ring", .sampleCount = values, .layout = {.storages = 1, .slots = {slots}}};
}

inline StatCollectorTraits historyOf(StorageType type, std::size_t values = 3)
{
    return {
        .description = "History", .sampleCount = values, .storageType = type, .layout = StorageLayout::forHistory()};
}

} // namespace meridal::test
