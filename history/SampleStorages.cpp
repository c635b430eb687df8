// SPDX-License-Identifier: Apache-2.0
#include "history/SampleStorages.h"

#include "history/HistoryReader.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace meridal {

namespace {

/// How much later than its period a live sample may be and still count: the clock ticks on whole seconds, and the tick
/// that ends a period is seldom on time to the microsecond.
constexpr double liveAllowance = 0.99;

} // namespace

SampleStorages::SampleStorages(std::size_t valueCount)
{
    for (std::size_t place = 0; place < storageCount; ++place) {
        rings_[place] = SampleRing(storageConstants[place].slots, valueCount);
    }
}

void SampleStorages::addSample(double time, std::span<const std::optional<double>> values)
{
    std::array<double, maximumValues> figures;
    const std::size_t count = std::min(values.size(), figures.size());
    std::transform(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(count), figures.begin(),
        [](const std::optional<double>& value) { return value.value_or(absentFigure); });
    SampleRing& live = rings_[position(StorageIndex::Live)];
    live.push(live.newestID() + 1, time, std::span(figures).first(count));
}

void SampleStorages::addSample(StorageIndex index, std::uint64_t sampleID, double time, std::span<const double> values)
{
    SampleRing& ring = rings_[position(index)];
    if (sampleID > ring.newestID()) {
        ring.push(sampleID, time, values);
    }
}

SampleAverages SampleStorages::averagesForIndex(StorageIndex index, double end) const
{
    const StorageConstants& constants = storageConstants[position(index)];
    const double allowance = constants.historyIndex == StorageIndex::Live ? liveAllowance : 0;
    return storageForType(constants.historyIndex)
        .averages({.start = end - static_cast<double>(constants.interval), .end = end + allowance});
}

void SampleStorages::addStoredRows(StorageIndex index, const StoredRows& rows)
{
    for (std::size_t row = 0; row < rows.rows.size(); ++row) {
        const StoredRows::Row& stored = rows.rows[row];
        if (stored.time > 0) { // else an average would take it for the end of its period
            addSample(
                index, stored.sampleID, stored.time, stored.empty ? std::span<const double>() : rows.valuesOf(row));
        }
    }
}

void SampleStorages::addStoredRows(StorageIndex index, const StoredStorage& stored, const std::string& key)
{
    SampleRing& ring = rings_[position(index)];
    const auto own = stored.items.byKey.find(key);
    if (ring.size() == 0 || own == stored.items.byKey.end()) {
        return;
    }
    const SampleRing since = std::exchange(ring, SampleRing(ring.size(), ring.valueCount()));
    auto period = stored.samples.rows.begin();
    const auto addPeriodsBefore = [&](std::uint64_t sampleID) {
        for (; period != stored.samples.rows.end() && period->sampleID < sampleID; ++period) {
            if (period->time > 0) {
                addSample(index, period->sampleID, period->time, {});
            }
        }
    };
    for (const std::size_t row : own->second) {
        const StoredRows::Row& sample = stored.items.rows[row];
        if (sample.time > 0) {
            addPeriodsBefore(sample.sampleID);
            addSample(index, sample.sampleID, sample.time, stored.items.valuesOf(row));
        }
    }
    addPeriodsBefore(std::numeric_limits<std::uint64_t>::max());
    for (std::size_t slot = since.size(); slot-- > 0;) { // what is no newer than the rows is among them
        const statsample sample = since[SlotIndex{slot}];
        addSample(index, sample.sampleID, sample.time, sample.values);
    }
}

} // namespace meridal
