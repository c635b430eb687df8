#include "collectors/StatCollectorItem.h"

#include "base/Runtime.h"
#include "history/HistoryReader.h"
#include "platform/Context.h"

#include <algorithm>
#include <utility>

namespace meridal {

StatCollectorItem::StatCollectorItem(Context& context, std::size_t sampleCount, const StorageLayout& layout)
    : context_(context)
    , layout_(layout)
    , sampleValueCount_(std::min(sampleCount, maximumValues))
    , sampleIndex_(layout, sampleValueCount_)
{
}

StatCollectorItem::~StatCollectorItem() { cleanup(); }

void StatCollectorItem::cleanup()
{
    if (cleanedUp_) {
        return;
    }
    cleanedUp_ = true;
    sampleValueCount_ = 0;
    for (SampleStorage& storage : sampleIndex_) {
        storage.samples = SampleRing();
        storage.record.maximumSamples = 0;
        storage.record.valuesLoaded = false;
    }
    freeFullStorage();
}

// Storages

void StatCollectorItem::loadStorageAtIndex(StorageIndex index)
{
    SampleStorage* storage = sampleIndex_.find(index);
    if (!storage) {
        return;
    }
    const sampleindexconfig clock = storage->record;
    *storage = makeStorage(index, layout_.slots[position(index)], sampleValueCount_);
    storage->record.sampleID = clock.sampleID;
    storage->record.time = clock.time;
    storage->record.nextTime = clock.nextTime;
}

void StatCollectorItem::loadFullStorageAtIndex(StorageIndex index)
{
    if (position(index) < storageCount) {
        sampleIndexFull_ = makeStorage(index, 1, sampleValueCount_);
    }
}

void StatCollectorItem::freeFullStorage()
{
    sampleIndexFull_.samples = SampleRing();
    sampleIndexFull_.record.maximumSamples = 0;
    sampleIndexFull_.record.valuesLoaded = false;
}

std::optional<sampleindexconfig> StatCollectorItem::sampleIndex(StorageIndex index) const
{
    const SampleStorage* storage = sampleIndex_.find(index);
    return storage ? std::optional(storage->record) : std::nullopt;
}

void StatCollectorItem::setTimeForSampleIndex(StorageIndex index, double time)
{
    if (SampleStorage* storage = sampleIndex_.find(index)) {
        storage->record.time = time;
    }
}

void StatCollectorItem::setNextTimeForSampleIndex(StorageIndex index, double time)
{
    if (SampleStorage* storage = sampleIndex_.find(index)) {
        storage->record.nextTime = time;
    }
}

void StatCollectorItem::setSampleIDForSampleIndex(StorageIndex index, double sampleID)
{
    if (SampleStorage* storage = sampleIndex_.find(index)) {
        storage->record.sampleID = sampleID;
    }
}

bool StatCollectorItem::loadedValuesAtIndex(StorageIndex index) const
{
    const SampleStorage* storage = sampleIndex_.find(index);
    return sampleValueCount_ > 0 && storage && storage->record.valuesLoaded;
}

double StatCollectorItem::idForInterval(StorageIndex index) const
{
    const SampleStorage* storage = sampleIndex_.find(index);
    return storage ? storage->record.sampleID : 0;
}

double StatCollectorItem::idForIntervalFull(StorageIndex index) const
{
    return position(index) < storageCount ? sampleIndexFull_.record.sampleID : 0;
}

const SampleRing* StatCollectorItem::storageForType(StorageIndex type) const
{
    if (const SampleStorage* storage = sampleIndex_.find(type)) {
        return storage->record.valuesLoaded ? &storage->samples : nullptr;
    }
    return position(type) == sampleIndex_.size() ? fullStorageForType(type) : nullptr;
}

const SampleRing* StatCollectorItem::fullStorageForType(StorageIndex) const
{
    return sampleIndexFull_.record.valuesLoaded ? &sampleIndexFull_.samples : nullptr;
}

void StatCollectorItem::clearAllStorages()
{
    for (SampleStorage& storage : sampleIndex_) {
        storage.samples.clear(SlotTimes::Clear);
    }
}

void StatCollectorItem::clearStorageForType(StorageIndex type)
{
    if (SampleStorage* storage = sampleIndex_.find(type)) {
        storage->samples.clear(SlotTimes::Clear);
    } else if (position(type) == sampleIndex_.size()) {
        sampleIndexFull_.samples.clear(SlotTimes::Clear);
    }
}

// Samples

statsample StatCollectorItem::sampleAtIndex(SlotIndex slot, StorageIndex type) const
{
    const SampleRing* samples = storageForType(type);
    return samples && samples->contains(slot) ? (*samples)[slot] : missingSample(0, sampleValueCount_);
}

statsample StatCollectorItem::sampleWithIdentifier(std::uint64_t sampleID, StorageIndex type) const
{
    const SampleStorage* storage = sampleIndex_.find(type);
    const statsample* sample = storage ? storage->samples.find(sampleID) : nullptr;
    return sample ? *sample : missingSample(sampleID, sampleValueCount_);
}

statsample StatCollectorItem::sampleWithIdentifierFull(std::uint64_t sampleID, StorageIndex type) const
{
    const SampleRing* samples = fullStorageForType(type);
    const statsample* sample = samples ? samples->find(sampleID) : nullptr;
    return sample ? *sample : missingSample(sampleID, sampleValueCount_);
}

std::uint64_t StatCollectorItem::lowestSampleForStorageType(StorageIndex type) const
{
    const SampleRing* samples = storageForType(type);
    return samples ? samples->newestID() : 0;
}

void StatCollectorItem::write(SampleStorage& storage, const Dictionary& sample, SlotIndex slot, std::uint64_t sampleID)
{
    if (!storage.samples.contains(slot)) {
        return;
    }
    writeSample(storage.samples, slot, sample, config_, EmptyRule::OnlyOne);
    storage.samples.setID(slot, sampleID);
    if (slot.value == 0) {
        // The clock of an item names its newest sample; nothing else drives it.
        storage.record.sampleID = static_cast<double>(sampleID);
        storage.record.time = storage.samples[slot].time;
    }
}

void StatCollectorItem::add(SampleStorage& storage, const Dictionary& sample)
{
    const SampleIdentifier identifier = sampleIdentifier(sample, config_);
    const std::uint64_t newest = storage.samples.newestID();
    const std::uint64_t sampleID = identifier.value == 0 ? newest + 1 : identifier.value;
    if (!identifier.acceptable || sampleID <= newest) {
        return;
    }
    storage.samples.shift();
    write(storage, sample, SlotIndex{0}, sampleID);
}

void StatCollectorItem::addSample(const Dictionary& sample, StorageIndex type)
{
    if (SampleStorage* storage = sampleIndex_.find(type)) {
        add(*storage, sample);
    }
}

void StatCollectorItem::addSample(const Dictionary& sample, StorageIndex type, SlotIndex slot)
{
    addSample(sample, type, slot, sampleIdentifier(sample, config_).value);
}

void StatCollectorItem::addSample(const Dictionary& sample, StorageIndex type, SlotIndex slot, std::uint64_t sampleID)
{
    if (SampleStorage* storage = sampleIndex_.find(type)) {
        write(*storage, sample, slot, sampleID);
    }
}

/// Makes room for a sample that comes without a dictionary, and labels it; false when it is not newer.
bool StatCollectorItem::beginSample(SampleStorage& storage, std::uint64_t sampleID, double time, bool empty)
{
    SampleRing& ring = storage.samples;
    if (ring.size() == 0 || sampleID <= ring.newestID()) {
        return false;
    }
    ring.shift();
    ring.setLabel(SlotIndex{0}, sampleID, time);
    ring.setEmpty(SlotIndex{0}, empty ? 1 : 0);
    storage.record.sampleID = static_cast<double>(sampleID);
    storage.record.time = time;
    return true;
}

void StatCollectorItem::addEmptySample(StorageIndex type, std::uint64_t sampleID, double time)
{
    SampleStorage* storage = sampleIndex_.find(type);
    if (storage && beginSample(*storage, sampleID, time, true)) {
        for (std::size_t value = 0; value < sampleValueCount_; ++value) {
            storage->samples.setValue(SlotIndex{0}, value, 0);
        }
    }
}

void StatCollectorItem::addStoredRows(const StoredStorage& stored, StorageIndex type)
{
    const StoredRows& rows = stored.items;
    const auto own = rows.byKey.find(key_.value_or(""));
    SampleStorage* storage = sampleIndex_.find(type);
    if (!key_ || !storage || own == rows.byKey.end()) {
        return;
    }
    SampleRing& ring = storage->samples;
    const auto write = [&](std::uint64_t sampleID, double time, bool empty, std::span<const double> values) {
        if (beginSample(*storage, sampleID, time, empty)) {
            for (std::size_t value = 0; value < values.size(); ++value) {
                ring.setValue(SlotIndex{0}, value, values[value]);
            }
        }
    };
    const SampleRing since = std::exchange(ring, SampleRing(ring.size(), sampleValueCount_));
    auto period = stored.samples.rows.begin();
    const auto writePeriodsBefore = [&](std::uint64_t sampleID) {
        for (; period != stored.samples.rows.end() && period->sampleID < sampleID; ++period) {
            if (period->time > 0) {
                addEmptySample(type, period->sampleID, period->time);
            }
        }
    };
    for (const std::size_t row : own->second) {
        const StoredRows::Row& sample = rows.rows[row];
        if (sample.time <= 0) {
            continue;
        }
        writePeriodsBefore(sample.sampleID);
        write(sample.sampleID, sample.time, sample.empty, rows.valuesOf(row));
    }
    writePeriodsBefore(std::numeric_limits<std::uint64_t>::max());
    for (std::size_t slot = since.size(); slot-- > 0;) { // what is no newer than the rows is among them
        const statsample& sample = since[SlotIndex{slot}];
        write(sample.sampleID, sample.time, sample.empty != 0, sample.values);
    }
}

void StatCollectorItem::addSampleToFullStorage(const Dictionary& sample, StorageIndex type)
{
    if (fullStorageForType(type)) {
        add(sampleIndexFull_, sample);
    }
}

void StatCollectorItem::addSampleToFullStorage(const Dictionary& sample, StorageIndex type, SlotIndex slot)
{
    addSampleToFullStorage(sample, type, slot, sampleIdentifier(sample, config_).value);
}

void StatCollectorItem::addSampleToFullStorage(
    const Dictionary& sample, StorageIndex type, SlotIndex slot, std::uint64_t sampleID)
{
    if (fullStorageForType(type) && slot.value == 0) {
        write(sampleIndexFull_, sample, slot, sampleID);
    }
}

// Figures

Dictionary StatCollectorItem::averagesForIndex(StorageIndex index) const
{
    return averagesDictionary(sampleIndex_.averages(index), config_, sampleValueCount_, context_.runtime.wallTime());
}

std::optional<Dictionary> StatCollectorItem::historyItemForIndex(StorageIndex index)
{
    const SampleStorage* storage = sampleIndex_.find(index);
    if (!key_ || !storage) {
        return std::nullopt;
    }
    Dictionary sample = averagesForIndex(index);
    sample["time"] = storage->record.time - storage->record.interval;
    sample["uuid"] = *key_;
    return sample;
}

bool StatCollectorItem::indexesBelowValueForTime(
    std::span<const std::size_t> indexes, double value, double seconds) const
{
    const SampleStorage* live = sampleIndex_.find(StorageIndex::Live);
    return live->samples.below({indexes, value, seconds, context_.runtime.wallTime()});
}

bool StatCollectorItem::indexesAboveValueForTime(
    std::span<const std::size_t> indexes, double value, double seconds) const
{
    const SampleStorage* live = sampleIndex_.find(StorageIndex::Live);
    return live->samples.above({indexes, value, seconds, context_.runtime.wallTime()});
}

// For subclasses to override

std::weak_ordering StatCollectorItem::sort(const StatCollectorItem&) const { return std::weak_ordering::less; }

void StatCollectorItem::addValue(const Value&, const Value&) { }

Value StatCollectorItem::attributeFromAttributes(const Value&) { return nullptr; }

} // namespace meridal
