// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "history/SampleRecords.h"
#include "history/SampleRing.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace meridal {

struct StoredRows;
struct StoredStorage;

/// The samples of one thing in memory: of a recorder itself, or of one of its items.
class SampleStorages {
public:
    explicit SampleStorages(std::size_t valueCount);

    const SampleRing& storageForType(StorageIndex index) const { return rings_[position(index)]; }

    /// A measurement, a value a column; absent is what was not measured. Seconds since 1970.
    void addSample(double time, std::span<const std::optional<double>> values);
    /// The sample of a period; dropped when it is not newer than the newest one.
    void addSample(StorageIndex index, std::uint64_t sampleID, double time, std::span<const double> values);
    /// Averages a storage's source over the period of that storage that ends at a moment. A live source may be up to
    /// 0.99 s later than that, so that a sample taken within the same second counts.
    SampleAverages averagesForIndex(StorageIndex index, double end) const;

    /// Takes rows of a table over.
    void addStoredRows(StorageIndex index, const StoredRows& rows);
    /// Puts an item's rows behind the samples that it has got since, and an empty sample for every period in which it has
    /// none, so that the storage reaches back as far as before.
    void addStoredRows(StorageIndex index, const StoredStorage& stored, const std::string& key);

private:
    std::array<SampleRing, storageCount> rings_;
};

} // namespace meridal
