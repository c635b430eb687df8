#include "collectors/StatCollector.h"

#include "collectors/StatCollectorItem.h"
#include "platform/Context.h"

#include <algorithm>
#include <utility>

namespace meridal {

StatCollector::StatCollector(Context& context, StatCollectorTraits traits)
    : context_(context)
    , description_(std::move(traits.description))
    , storageType_(traits.storageType)
    , sampleValueCount_(std::min(traits.sampleCount, maximumValues))
    , sampleIndex_(traits.layout, sampleValueCount_)
    , updaterFinishBlock_([](StatCollector& collector) { collector.notifyUpdated(); })
    , queue_(context.runtime.makeSerialQueue(description_))
    , session_(static_cast<std::int64_t>(context.runtime.wallTime()))
{
    for (SampleStorage& storage : sampleIndex_) {
        storage.record.sampleID = 1;
    }
}

StatCollector::~StatCollector()
{
    for (const auto& item : items_) {
        item->setParent(nullptr);
    }
}

void StatCollector::cleanup()
{
    stopped_ = true;
    cleanedUp_ = true;
    clock_.end();
    std::fill(delegates_.begin(), delegates_.end(), nullptr);
    if (notifying_ == 0) {
        delegates_.clear();
    }
    if (!measuring_) {
        queue_.reset();
    }
}

// Hooks: what the base does where a subclass, or the database, has nothing to add.

void StatCollector::addLongTermSample(const Dictionary&) { }
void StatCollector::updateStats() { }
void StatCollector::updateStatsForSequence(std::int64_t) { updateStats(); }
void StatCollector::fillGaps() { }
bool StatCollector::threadedUpdating() const { return false; }
double StatCollector::updateFrequencyForVersion(std::int64_t) const { return 2.0; }
std::optional<Dictionary> StatCollector::overview() { return std::nullopt; }
std::optional<Value> StatCollector::sampleItemsSinceID(std::uint64_t, StorageIndex) { return std::nullopt; }
std::optional<Dictionary> StatCollector::historyItemForIndex(StorageIndex index) { return averagesForIndex(index); }
std::shared_ptr<StatCollectorItem> StatCollector::makeItem() { return nullptr; }
Value StatCollector::attributeFromAttributes(const Value&) { return nullptr; }

void StatCollector::sort()
{
    // Asked the other way round, the base comparison (which keeps every pair) puts no item before another.
    std::stable_sort(items_.begin(), items_.end(),
        [](const auto& first, const auto& second) { return second->sort(*first) == std::weak_ordering::greater; });
}

// Delegates

template <typename Call>
void StatCollector::forEachDelegate(Call call)
{
    // Delegates come and go inside the calls: those added meanwhile wait for the next notification, those removed leave
    // a null behind that the outermost notification sweeps away.
    ++notifying_;
    const std::size_t count = delegates_.size();
    for (std::size_t index = 0; index < count; ++index) {
        if (delegates_[index]) {
            call(*delegates_[index]);
        }
    }
    if (--notifying_ == 0) {
        std::erase(delegates_, nullptr);
    }
}

void StatCollector::addDelegate(StatCollectorDelegate& delegate)
{
    if (!cleanedUp_ && std::find(delegates_.begin(), delegates_.end(), &delegate) == delegates_.end()) {
        delegates_.push_back(&delegate);
    }
}

void StatCollector::removeDelegate(StatCollectorDelegate& delegate)
{
    std::replace(delegates_.begin(), delegates_.end(), &delegate, static_cast<StatCollectorDelegate*>(nullptr));
    if (notifying_ == 0) {
        std::erase(delegates_, nullptr);
    }
}

bool StatCollector::shouldUpdateStateForSequence(std::int64_t sequence)
{
    bool anybody = false;
    bool wanted = false;
    forEachDelegate([&](StatCollectorDelegate& delegate) {
        anybody = true;
        wanted = wanted || delegate.collectorShouldUpdateStateForSequence(*this, sequence).value_or(false);
    });
    return wanted || !anybody;
}

void StatCollector::itemLoadedValues(StatCollectorItem& item)
{
    forEachDelegate([&](StatCollectorDelegate& delegate) { delegate.collectorLoadedValueForItem(*this, item); });
}

void StatCollector::tellChildrenChanged()
{
    forEachDelegate([this](StatCollectorDelegate& delegate) { delegate.collectorChildrenChanged(*this); });
}

void StatCollector::notifyUpdated()
{
    const auto notify = [this] {
        forEachDelegate([this](StatCollectorDelegate& delegate) { delegate.collectorUpdatedForMode(*this, 0); });
    };
    if (threadedUpdating()) {
        context_.runtime.mainQueue().post(lifetime_.guard(notify));
    } else {
        notify();
    }
}

// Items

std::shared_ptr<StatCollectorItem> StatCollector::itemWithKey(std::string_view key, Temporary temporary)
{
    const auto match = std::find_if(items_.begin(), items_.end(),
        [&](const auto& item) { return item->key() == key && (temporary == Temporary::Yes || !item->temporary()); });
    if (match != items_.end()) {
        return *match;
    }
    if (temporary == Temporary::No) {
        return nullptr;
    }
    const auto item = newItemWithKey(key);
    if (item) {
        item->setTemporary(true);
    }
    return item;
}

std::shared_ptr<StatCollectorItem> StatCollector::itemWithKey(std::int64_t key, Temporary temporary)
{
    return itemWithKey(std::to_string(key), temporary);
}

std::shared_ptr<StatCollectorItem> StatCollector::newItemWithKey(std::string_view key)
{
    const auto match = std::find_if(items_.begin(), items_.end(), [&](const auto& item) { return item->key() == key; });
    if (match != items_.end()) {
        (*match)->setTemporary(false);
        return *match;
    }
    auto item = makeItem();
    if (item) {
        item->config().update(config_);
        item->setKey(std::string(key));
        item->setTemporary(false);
        item->setParent(this);
        items_.push_back(item);
    }
    return item;
}

bool StatCollector::removeOldItems()
{
    return std::erase_if(items_, [](const auto& item) {
        if (item->exists()) {
            return false;
        }
        item->setParent(nullptr); // somebody may still hold it
        return true;
    }) > 0;
}

namespace {

/// The keys of a "|"-separated set without one of them.
std::string keysWithout(std::string_view keys, std::string_view removed)
{
    std::string rest;
    while (!keys.empty()) {
        const std::string_view key = keys.substr(0, keys.find('|'));
        keys.remove_prefix(std::min(keys.size(), key.size() + 1));
        if (!key.empty() && key != removed) {
            rest.append(rest.empty() ? "" : "|").append(key);
        }
    }
    return rest;
}

} // namespace

void StatCollector::addSelectionKeyItem(std::string_view key)
{
    const std::string present = '|' + selectionKey_.value_or("") + '|';
    if (key.empty() || present.find('|' + std::string(key) + '|') != std::string::npos) {
        return;
    }
    selectionKey_ =
        selectionKey_ && !selectionKey_->empty() ? *selectionKey_ + '|' + std::string(key) : std::string(key);
}

void StatCollector::removeSelectionKeyItem(std::string_view key)
{
    std::string rest = keysWithout(selectionKey_.value_or(""), key);
    selectionKey_ = rest.empty() ? std::nullopt : std::optional(std::move(rest));
}

// Storages

std::optional<sampleindexconfig> StatCollector::sampleIndex(StorageIndex index) const
{
    const SampleStorage* found = sampleIndex_.find(index);
    return found ? std::optional(found->record) : std::nullopt;
}

double StatCollector::idForInterval(StorageIndex index) const
{
    const SampleStorage* found = sampleIndex_.find(index);
    return found ? found->record.sampleID : 0;
}

void StatCollector::setIDForInterval(StorageIndex index, double sampleID)
{
    if (SampleStorage* found = storage(index)) {
        found->record.sampleID = sampleID;
    }
}

bool StatCollector::updatedForInterval(StorageIndex index) const
{
    const SampleStorage* found = sampleIndex_.find(index);
    return found && found->record.updated;
}

void StatCollector::setUpdatedForInterval(StorageIndex index, bool updated)
{
    if (SampleStorage* found = storage(index)) {
        found->record.updated = updated;
    }
}

const SampleRing* StatCollector::storageForType(StorageIndex type) const
{
    const SampleStorage* found = sampleIndex_.find(type);
    return found ? &found->samples : nullptr;
}

statsample StatCollector::sampleAtIndex(SlotIndex slot, StorageIndex type) const
{
    const SampleRing* samples = storageForType(type);
    return samples && samples->contains(slot) ? (*samples)[slot] : missingSample(0, sampleValueCount_);
}

double StatCollector::lastTimeForType(StorageIndex type) const
{
    const statsample newest = sampleAtIndex(SlotIndex{0}, type);
    return newest.sampleID == 0 ? 0 : newest.time;
}

std::uint64_t StatCollector::lastIDForType(StorageIndex type) const
{
    const SampleRing* samples = storageForType(type);
    return samples ? samples->newestID() : 0;
}

statsample StatCollector::sampleWithIdentifier(std::uint64_t sampleID, StorageIndex type) const
{
    const SampleRing* samples = storageForType(type);
    const statsample* sample = samples ? samples->find(sampleID) : nullptr;
    return sample ? *sample : missingSample(sampleID, sampleValueCount_);
}

std::uint64_t StatCollector::lowestSampleForStorageType(StorageIndex type) const
{
    if (storageType_ != StorageType::Items) {
        return lastIDForType(type);
    }
    std::optional<std::uint64_t> lowest;
    for (const auto& item : items_) {
        const auto record = item->sampleIndex(type);
        if (record && record->valuesLoaded) {
            const std::uint64_t newest = item->lowestSampleForStorageType(type);
            lowest = std::min(lowest.value_or(newest), newest);
        }
    }
    return lowest.value_or(0);
}

void StatCollector::clearStorageForType(StorageIndex type)
{
    for (const auto& item : items_) {
        item->clearStorageForType(type);
    }
    if (SampleStorage* found = storage(type)) {
        found->samples.clear(SlotTimes::Keep);
    }
}

void StatCollector::clearAllStorages()
{
    for (std::size_t index = 0; index < sampleIndex_.size(); ++index) {
        clearStorageForType(static_cast<StorageIndex>(index));
    }
}

void StatCollector::freeFullStorage()
{
    for (const auto& item : items_) {
        item->setLoadingHistory(false);
        item->setLoadedHistory(false);
        item->freeFullStorage();
    }
}

// Samples

void StatCollector::addSample(const Dictionary& sample, StorageIndex index)
{
    SampleStorage* found = storage(index);
    if (!found) {
        return;
    }
    if (storageType_ == StorageType::Items) {
        found->samples.shiftLabels();
        found->samples.setLabel(
            SlotIndex{0}, wholeIdentifier(number(sample, "sample").value_or(0)), number(sample, "time").value_or(0));
        return;
    }
    const SampleIdentifier identifier = sampleIdentifier(sample, config_);
    const std::uint64_t newest = found->samples.newestID();
    const std::uint64_t sampleID = identifier.value == 0 ? newest + 1 : identifier.value;
    if (identifier.acceptable && sampleID > newest) {
        addSample(sample, index, sampleID);
    }
}

void StatCollector::addSample(const Dictionary& sample, StorageIndex index, std::uint64_t sampleID)
{
    if (SampleStorage* found = storage(index)) {
        found->samples.shift();
        addSample(sample, index, sampleID, SlotIndex{0});
    }
}

void StatCollector::addSample(const Dictionary& sample, StorageIndex index, std::uint64_t sampleID, SlotIndex slot)
{
    SampleStorage* found = storage(index);
    if (found && found->samples.contains(slot)) {
        writeSample(found->samples, slot, sample, config_, EmptyRule::AsGiven);
        found->samples.setID(slot, sampleID);
    }
}

Dictionary StatCollector::emptySampleWithIdentifier(std::uint64_t sampleID, double time) const
{
    Dictionary sample{{"sample", sampleID}, {"time", time}, {"empty", 1}};
    const Value* keys = find(config_, "emptySampleKeys");
    if (keys && keys->is_array()) {
        for (const Value& key : *keys) {
            if (key.is_string()) {
                sample[key.get_ref<const std::string&>()] = 0;
            }
        }
    }
    return sample;
}

// Figures

Dictionary StatCollector::averagesForIndex(StorageIndex index) const
{
    return averagesDictionary(sampleIndex_.averages(index), config_, sampleValueCount_, context_.runtime.wallTime());
}

bool StatCollector::indexesBelowValueForTime(std::span<const std::size_t> indexes, double value, double seconds) const
{
    const SampleStorage* live = sampleIndex_.find(StorageIndex::Live);
    return live->samples.below({indexes, value, seconds, context_.runtime.wallTime()});
}

bool StatCollector::indexesAboveValueForTime(std::span<const std::size_t> indexes, double value, double seconds) const
{
    const SampleStorage* live = sampleIndex_.find(StorageIndex::Live);
    return live->samples.above({indexes, value, seconds, context_.runtime.wallTime()});
}

} // namespace meridal
