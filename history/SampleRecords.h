#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace meridal {

/// Identifiers of samples are also held as doubles, which beyond this no longer count in ones.
constexpr double largestIdentifier = 9'007'199'254'740'992.0;

/// Most values that one sample can hold.
constexpr std::size_t maximumValues = 19;

/// The resolutions in which samples are kept, finest first. Each names an interval, a table and the resolution that is
/// averaged to produce it.
enum class StorageIndex : std::uint8_t { Live, Hour, Day, Week, Month, ThreeMonths, SixMonths, Year, LongTerm };

constexpr std::size_t storageCount = 9;

constexpr std::size_t position(StorageIndex index) { return static_cast<std::size_t>(index); }

/// What is fixed about one resolution.
struct StorageConstants {
    std::string_view tablePrefix;                   ///< of its history tables; the live storage has none
    std::int64_t interval = 0;                      ///< s between samples
    StorageIndex historyIndex = StorageIndex::Live; ///< its averaging source
};

/// A table holds the newest 603 samples: this many intervals lie between its first and its last.
constexpr double historyIntervals = 602;
constexpr std::size_t keptSamples = 603;

constexpr std::array<StorageConstants, storageCount> storageConstants = {{
    {"", 1, StorageIndex::Live},
    {"hour_", 6, StorageIndex::Live},
    {"day_", 144, StorageIndex::Hour},
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

/// Which storages an object keeps and how many samples each holds in memory. What the layout lacks takes no samples and
/// answers as empty.
struct StorageLayout {
    std::size_t storages = 1;                          ///< 0 to storages - 1 exist
    std::array<std::size_t, storageCount> slots = {1}; ///< of each; may be 0 where only the clock is wanted

    /// Every resolution, each with the slots that the coarser ones average: five minutes of live samples for the
    /// long-term store, a week of "hour" samples, a year of "day" samples. Costs 839 slots of 40 bytes and 8 a value:
    /// 40 KB for an item with one value, 67 KB with five.
    static constexpr StorageLayout forHistory() { return {storageCount, {301, 168, 365, 1, 1, 1, 1, 1, 0}}; }
};

/// One stored sample, as a view: the values are those of the ring that it came from and change when that is written.
struct statsample {
    std::uint64_t sampleID = 0;     ///< counts samples of one storage; 0 = none yet
    double time = 0;                ///< s since 1970
    std::int32_t empty = 1;         ///< 1 when the slot holds no measurement, 0 otherwise
    std::span<const double> values; ///< finite, in the units of the collector
};

/// The clock of one storage. Times are wall-clock seconds since 1970.
struct sampleindexconfig {
    double sampleID = 0; ///< identifier of the current or next sample
    double time = 0;     ///< start of the current period
    double nextTime = 0; ///< when the next sample is due; 0 = not started
    double interval = 1; ///< s between samples
    std::int64_t maximumSamples = 0;
    std::array<double, maximumValues> peaks = {};
    bool updated = false;      ///< this storage has been updated for the current period
    bool valuesLoaded = false; ///< its slots are allocated
    bool fillingGap = false;   ///< the gap before this run has been filled
    StorageIndex historyIndex = StorageIndex::Live;
};

/// Highest value of each kind.
struct samplepeaks {
    std::array<double, maximumValues> peaks = {};
};

} // namespace meridal
