#pragma once

#include "base/ValueFwd.h"
#include "history/SampleRecords.h"
#include "history/SampleRing.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace meridal {

/// A storage: its clock and its samples.
struct SampleStorage {
    sampleindexconfig record;
    SampleRing samples;
};

/// One storage as the tables and the layout want it; all slots empty.
SampleStorage makeStorage(StorageIndex index, std::size_t slots, std::size_t valueCount);

/// The storages that a collector or an item keeps, by index. What the layout lacks is null.
class SampleStorages {
public:
    SampleStorages(const StorageLayout& layout, std::size_t valueCount);

    std::size_t size() const { return storages_.size(); }
    SampleStorage* find(StorageIndex index);
    const SampleStorage* find(StorageIndex index) const;
    auto begin() { return storages_.begin(); }
    auto end() { return storages_.end(); }

    /// Averages, for one storage, its source over the period that ends at the storage's time. A live source may be up to
    /// 0.99 s later than that, so that a sample taken within the same second counts.
    SampleAverages averages(StorageIndex index) const;

private:
    std::vector<SampleStorage> storages_;
};

/// How an owner reads a sample's "empty" entry.
enum class EmptyRule {
    AsGiven, ///< the integer itself
    OnlyOne, ///< 1 marks empty, everything else does not
};

/// What a sample's dictionary says of its identifier.
struct SampleIdentifier {
    std::uint64_t value = 0; ///< 0 when the sample has none
    bool acceptable = true;  ///< false for a negative number or one too large to count on from
};

/// The identifier in a sample: the last of the configuration's "addSampleIDKeys" that is present.
SampleIdentifier sampleIdentifier(const Dictionary& sample, const Dictionary& config);

/// Whether a sample says that it holds no measurement.
bool isEmptySample(const Dictionary& sample);

/// The identifier that a clock's counter stands for; 0 for nonsense.
std::uint64_t wholeIdentifier(double sampleID);

/// Writes a sample into a slot, which must exist, by the configuration's "addSampleMap". Entries that are not finite
/// numbers are left out. Allocates nothing.
void writeSample(SampleRing& ring, SlotIndex slot, const Dictionary& sample, const Dictionary& config, EmptyRule rule);

/// Averages as a history sample: "empty", "time" and every value of the configuration's "sampleKeys".
Dictionary averagesDictionary(
    const SampleAverages& averages, const Dictionary& config, std::size_t valueCount, double now);

/// The answer where a sample is missing: zeros, marked empty.
statsample missingSample(std::uint64_t sampleID, std::size_t valueCount);

} // namespace meridal
