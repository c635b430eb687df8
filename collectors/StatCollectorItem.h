#pragma once

#include "base/Value.h"
#include "collectors/StatCollectorBase.h"
#include "history/SampleStorages.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace meridal {

struct Context;
struct StoredStorage;
class StatCollector;

/// One thing that a collector tracks: a process, a sensor, an interface, a battery, a disk. It keeps a reduced store
/// (the layout's storages) and, only while a client looks at its detailed history, a full store of one slot.
/// Confined to the queue on which its collector samples; holds no locks. Storages that the layout lacks take no samples
/// and answer as empty.
class StatCollectorItem : public StatCollectorItemBase {
public:
    /// `sampleCount` is the number of values per sample, at most maximumValues.
    explicit StatCollectorItem(Context& context, std::size_t sampleCount = 0, const StorageLayout& layout = {});
    ~StatCollectorItem() override;
    StatCollectorItem(const StatCollectorItem&) = delete;
    StatCollectorItem& operator=(const StatCollectorItem&) = delete;

    // Identity
    /// What tells it from its siblings; absent until its collector has named it.
    const std::optional<std::string>& key() const { return key_; }
    void setKey(std::string key) { key_ = std::move(key); }
    void setAlternateKey(std::optional<std::string> key) { alternateKey_ = std::move(key); }
    /// The collector that owns it; null once that has dropped it.
    StatCollector* parent() const { return parent_; }
    void setParent(StatCollector* parent) { parent_ = parent; }
    /// Its copy of the collector's configuration.
    Dictionary& config() { return config_; }
    const Dictionary& config() const { return config_; }
    std::size_t sampleValueCount() const { return sampleValueCount_; }
    std::int64_t protocolVersion() const { return protocolVersion_; }

    // State
    /// Made to answer one request; normal look-ups pass it over.
    bool temporary() const { return temporary_; }
    void setTemporary(bool temporary) { temporary_ = temporary; }
    /// Left out of history samples.
    bool nohistory() const { return nohistory_; }
    /// Still found by the latest measurement. The collector clears it before a pass and drops what stays cleared.
    bool exists() const { return exists_; }
    void setExists(bool exists) { exists_ = exists; }
    void setLoadingHistory(bool loading) { loadingHistory_ = loading; }
    void setLoadedHistory(bool loaded) { loadedHistory_ = loaded; }
    /// Its collector has asked the database for what it stored of this item in earlier runs.
    bool storedHistoryAsked() const { return storedHistoryAsked_; }
    void setStoredHistoryAsked() { storedHistoryAsked_ = true; }

    // Storages
    /// Allocates the full store, which holds the samples of the index that the client looks at.
    void loadFullStorageAtIndex(StorageIndex index);
    void freeFullStorage();
    /// A copy of the clock of a storage.
    std::optional<sampleindexconfig> sampleIndex(StorageIndex index) const;
    void setTimeForSampleIndex(StorageIndex index, double time);
    void setNextTimeForSampleIndex(StorageIndex index, double time);
    void setSampleIDForSampleIndex(StorageIndex index, double sampleID);
    double idForInterval(StorageIndex index) const;
    /// The samples of a storage. The full store, while it is there, follows the layout's last one: in the layout of one
    /// storage it is number 1. Null where there is none.
    const SampleRing* storageForType(StorageIndex type) const;
    const SampleRing* fullStorageForType(StorageIndex type) const;
    void clearStorageForType(StorageIndex type);

    // Samples
    statsample sampleAtIndex(SlotIndex slot, StorageIndex type) const;
    std::uint64_t lowestSampleForStorageType(StorageIndex type) const;

    /// Records a new measurement. Its identifier is its own, or the newest one + 1; one that is not newer is dropped.
    void addSample(const Dictionary& sample, StorageIndex type);
    /// Writes one slot without shifting; identifier 0 where the sample has none.
    void addSample(const Dictionary& sample, StorageIndex type, SlotIndex slot);
    void addSample(const Dictionary& sample, StorageIndex type, SlotIndex slot, std::uint64_t sampleID);
    /// Records that a period held no measurement. Dropped when it is not newer than the newest sample.
    void addEmptySample(StorageIndex type, std::uint64_t sampleID, double time);
    /// Puts this item's rows of a history table behind the samples that it has got since, and an empty sample for every
    /// period in which it has none, so that the storage reaches back as far as before.
    void addStoredRows(const StoredStorage& stored, StorageIndex type);
    /// The same on the full store; ignored while that is not allocated.
    void addSampleToFullStorage(const Dictionary& sample, StorageIndex type);
    void addSampleToFullStorage(const Dictionary& sample, StorageIndex type, SlotIndex slot);
    void addSampleToFullStorage(const Dictionary& sample, StorageIndex type, SlotIndex slot, std::uint64_t sampleID);

    // Figures
    /// The average of the storage's source over its latest period; "time" is now.
    Dictionary averagesForIndex(StorageIndex index) const;
    /// One history sample of this item; absent while it has no key.
    virtual std::optional<Dictionary> historyItemForIndex(StorageIndex index);

    // For subclasses to override
    /// Where this item belongs relative to another one: less = before it. The base keeps every pair as it is.
    virtual std::weak_ordering sort(const StatCollectorItem& other) const;
    /// Takes a value that comes by identifier. The base ignores it.
    virtual void addValue(const Value& value, const Value& identifier);
    /// An attribute made of others; null in the base.
    virtual Value attributeFromAttributes(const Value& attributes);

    /// Lets go of all samples, once. Destruction does it too.
    void cleanup();

    // Of the interface, and called by nothing here
    const std::optional<std::string>& alternateKey() const { return alternateKey_; }
    void setProtocolVersion(std::int64_t version) { protocolVersion_ = version; }
    bool slowUpdating() const { return slowUpdating_; }
    void setSlowUpdating(bool slow) { slowUpdating_ = slow; }
    void setNohistory(bool nohistory) { nohistory_ = nohistory; }
    /// A client has asked for, or has got, the full store.
    bool loadingHistory() const { return loadingHistory_; }
    bool loadedHistory() const { return loadedHistory_; }
    bool cleanedUp() const { return cleanedUp_; }
    /// Sets a storage of the layout up afresh, with all slots empty.
    void loadStorageAtIndex(StorageIndex index);
    bool loadedValuesAtIndex(StorageIndex index) const;
    double idForIntervalFull(StorageIndex index) const;
    void clearAllStorages();
    /// On a miss an empty sample of that identifier.
    statsample sampleWithIdentifier(std::uint64_t sampleID, StorageIndex type) const;
    statsample sampleWithIdentifierFull(std::uint64_t sampleID, StorageIndex type) const;
    /// Whether the sum of some values of the live storage stayed below (strictly), or at or above, a value for some
    /// seconds. Negative seconds ask about the newest sample only.
    bool indexesBelowValueForTime(std::span<const std::size_t> indexes, double value, double seconds) const;
    bool indexesAboveValueForTime(std::span<const std::size_t> indexes, double value, double seconds) const;

protected:
    Context& context() const { return context_; }

private:
    bool beginSample(SampleStorage& storage, std::uint64_t sampleID, double time, bool empty);
    void add(SampleStorage& storage, const Dictionary& sample);
    void write(SampleStorage& storage, const Dictionary& sample, SlotIndex slot, std::uint64_t sampleID);

    Context& context_;
    std::optional<std::string> key_;
    std::optional<std::string> alternateKey_;
    StatCollector* parent_ = nullptr;
    Dictionary config_ = Dictionary::object();
    StorageLayout layout_;
    std::size_t sampleValueCount_ = 0;
    SampleStorages sampleIndex_;
    SampleStorage sampleIndexFull_;
    std::int64_t protocolVersion_ = 0;
    bool slowUpdating_ = false;
    bool temporary_ = false;
    bool nohistory_ = false;
    bool exists_ = false;
    bool loadedHistory_ = false;
    bool loadingHistory_ = false;
    bool cleanedUp_ = false;
    bool storedHistoryAsked_ = false;
};

} // namespace meridal
