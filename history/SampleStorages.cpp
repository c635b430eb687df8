#include "history/SampleStorages.h"

#include "base/Value.h"
#include "history/SampleRecords.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace meridal {

namespace {

/// How much later than its period a live sample may be and still count: the clock ticks on whole seconds, and the tick
/// that ends a period is seldom on time to the microsecond.
constexpr double liveAllowance = 0.99;

std::int32_t emptyEntry(const Dictionary& sample)
{
    const Value* entry = find(sample, "empty");
    if (!entry) {
        return 0;
    }
    if (entry->is_boolean()) {
        return entry->get<bool>() ? 1 : 0;
    }
    using Limits = std::numeric_limits<std::int32_t>;
    const double figure = number(sample, "empty").value_or(0);
    return static_cast<std::int32_t>(std::clamp<double>(figure, Limits::min(), Limits::max()));
}

} // namespace

SampleStorage makeStorage(StorageIndex index, std::size_t slots, std::size_t valueCount)
{
    const StorageConstants& constants = storageConstants[position(index)];
    SampleStorage storage;
    storage.record.interval = static_cast<double>(constants.interval);
    storage.record.historyIndex = constants.historyIndex;
    storage.record.maximumSamples = static_cast<std::int64_t>(slots);
    storage.record.valuesLoaded = true;
    storage.samples = SampleRing(slots, valueCount);
    return storage;
}

SampleStorages::SampleStorages(const StorageLayout& layout, std::size_t valueCount)
{
    const std::size_t count = std::clamp<std::size_t>(layout.storages, 1, storageCount);
    storages_.reserve(count);
    for (std::size_t index = 0; index < count; ++index) {
        storages_.push_back(makeStorage(static_cast<StorageIndex>(index), layout.slots[index], valueCount));
    }
}

SampleStorage* SampleStorages::find(StorageIndex index)
{
    return position(index) < storages_.size() ? &storages_[position(index)] : nullptr;
}

const SampleStorage* SampleStorages::find(StorageIndex index) const
{
    return position(index) < storages_.size() ? &storages_[position(index)] : nullptr;
}

SampleAverages SampleStorages::averages(StorageIndex index) const
{
    const SampleStorage* storage = find(index);
    const SampleStorage* source = storage ? find(storage->record.historyIndex) : nullptr;
    if (!source) {
        return {};
    }
    const double end = storage->record.time;
    const double allowance = storage->record.historyIndex == StorageIndex::Live ? liveAllowance : 0;
    return source->samples.averages({.start = end - storage->record.interval, .end = end + allowance});
}

SampleIdentifier sampleIdentifier(const Dictionary& sample, const Dictionary& config)
{
    SampleIdentifier identifier;
    const Value* keys = find(config, "addSampleIDKeys");
    if (!keys || !keys->is_array()) {
        return identifier;
    }
    for (const Value& key : *keys) {
        if (!key.is_string() || !find(sample, key.get_ref<const std::string&>())) {
            continue;
        }
        const double figure = number(sample, key.get_ref<const std::string&>()).value_or(0);
        identifier.acceptable = figure >= 0 && figure <= largestIdentifier;
        identifier.value = identifier.acceptable ? static_cast<std::uint64_t>(figure) : 0;
    }
    return identifier;
}

bool isEmptySample(const Dictionary& sample) { return emptyEntry(sample) != 0; }

std::uint64_t wholeIdentifier(double sampleID)
{
    return sampleID >= 0 && sampleID <= largestIdentifier ? static_cast<std::uint64_t>(sampleID) : 0;
}

void writeSample(SampleRing& ring, SlotIndex slot, const Dictionary& sample, const Dictionary& config, EmptyRule rule)
{
    const Value* map = find(config, "addSampleMap");
    if (map && map->is_object()) {
        for (auto entry = map->begin(); entry != map->end(); ++entry) {
            const auto figure = number(sample, entry.key());
            if (!figure || !entry->is_number_integer()) {
                continue;
            }
            const auto index = entry->get<std::int64_t>();
            if (index == -1) {
                ring.setTime(slot, *figure);
            } else if (index >= 0) {
                ring.setValue(slot, static_cast<std::size_t>(index), *figure);
            }
        }
    }
    if (const auto time = number(sample, "time")) {
        ring.setTime(slot, *time);
    }
    const std::int32_t empty = emptyEntry(sample);
    ring.setEmpty(slot, rule == EmptyRule::AsGiven ? empty : (empty == 1 ? 1 : 0));
}

Dictionary averagesDictionary(
    const SampleAverages& averages, const Dictionary& config, std::size_t valueCount, double now)
{
    Dictionary result{{"empty", averages.samples == 0}, {"time", now}};
    const Value* keys = find(config, "sampleKeys");
    if (keys && keys->is_object()) {
        for (auto entry = keys->begin(); entry != keys->end(); ++entry) {
            const auto index = integer(*keys, entry.key());
            if (index && *index >= 0 && static_cast<std::size_t>(*index) < valueCount) {
                result[entry.key()] = averages.values[static_cast<std::size_t>(*index)];
            }
        }
    }
    return result;
}

statsample missingSample(std::uint64_t sampleID, std::size_t valueCount)
{
    static constexpr std::array<double, maximumValues> zeros = {};
    return {.sampleID = sampleID,
        .time = 0,
        .empty = 1,
        .values = std::span(zeros).first(std::min(valueCount, maximumValues))};
}

} // namespace meridal
