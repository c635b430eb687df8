// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string_view>

namespace meridal {

/// Identifiers of samples are also held as doubles, which beyond this no longer count in ones.
constexpr double largestIdentifier = 9'007'199'254'740'992.0;

/// Most values that one sample can hold.
constexpr std::size_t maximumValues = 19;

/// In samples that are kept, what a value is that was not measured.
constexpr double absentFigure = std::numeric_limits<double>::quiet_NaN();

/// The resolutions in which samples are kept, finest first. Each names an interval, a table and the resolution that is
/// averaged to produce it.
enum class StorageIndex : std::uint8_t { Live, Hour, Day, Week, Month, ThreeMonths, SixMonths, Year, LongTerm };

constexpr std::size_t storageCount = 9;

constexpr std::size_t position(StorageIndex index) { return static_cast<std::size_t>(index); }

/// Those that have tables, finest first, and the long-term one.
constexpr std::array<StorageIndex, 8> recordedStorages = {StorageIndex::Hour, StorageIndex::Day, StorageIndex::Week,
    StorageIndex::Month, StorageIndex::ThreeMonths, StorageIndex::SixMonths, StorageIndex::Year,
    StorageIndex::LongTerm};

/// What is fixed about one resolution.
struct StorageConstants {
    std::string_view tablePrefix;                   ///< of its history tables; the live storage has none
    std::int64_t interval = 0;                      ///< s between samples
    StorageIndex historyIndex = StorageIndex::Live; ///< its averaging source
    std::size_t slots = 0;                          ///< samples in memory: as many as coarser ones are averaged of
};

/// A table holds the newest 603 samples: this many intervals lie between its first and its last.
constexpr double historyIntervals = 602;
constexpr std::size_t keptSamples = 603;

/// Memory holds five minutes of live samples for the long-term store, a week of "hour" samples, a year of "day" samples.
/// When they are full, after fifteen hours, that is 834 slots of 16 bytes and 8 a value: 20 KB for an item with one value,
/// 47 KB with five.
constexpr std::array<StorageConstants, storageCount> storageConstants = {{
    {"", 1, StorageIndex::Live, 301},
    {"hour_", 6, StorageIndex::Live, 168},
    {"day_", 144, StorageIndex::Hour, 365},
    {"week_", 1008, StorageIndex::Hour},
    {"month_", 4320, StorageIndex::Day},
    {"threemonth_", 12960, StorageIndex::Day},
    {"sixmonth_", 25920, StorageIndex::Day},
    {"year_", 52560, StorageIndex::Day},
    {"", 300, StorageIndex::Live},
}};

/// A slot of a ring; 0 is the newest sample. A type of its own because slots, identifiers and storages travel together.
struct SlotIndex {
    std::size_t value = 0;
};

/// One stored sample, as a view: the values are those of the ring that it came from, and gone when that is written.
struct statsample {
    std::uint64_t sampleID = 0;     ///< counts samples of one storage; 0 = none yet
    double time = 0;                ///< s since 1970
    bool empty = true;              ///< none of its values was measured
    std::span<const double> values; ///< finite, in the units of the recorder, or absentFigure
};

/// The clock of one storage. Times are wall-clock seconds since 1970.
struct sampleindexconfig {
    double sampleID = 0; ///< identifier of the current or next sample
    double time = 0;     ///< start of the current period
    double nextTime = 0; ///< when the next sample is due; 0 = not started
    double interval = 1; ///< s between samples
};

} // namespace meridal
