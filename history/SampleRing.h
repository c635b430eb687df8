#pragma once

#include "history/SampleRecords.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace meridal {

/// The samples that an average takes: later than `start`, not later than `end`. A start of 0 or less takes all.
/// Seconds since 1970.
struct AverageWindow {
    double start = 0;
    double end = 0;
};

struct SampleAverages {
    std::array<double, maximumValues> values = {};
    std::size_t samples = 0; ///< how many were averaged; 0 leaves all values 0
};

/// "Has the sum of these values been beyond the threshold for the last seconds?"
struct ThresholdQuery {
    std::span<const std::size_t> indexes; ///< values to add up; those that a sample lacks count nothing
    double threshold = 0;
    double seconds = 0; ///< negative: only the newest sample counts
    double now = 0;     ///< s since 1970
};

/// Whether clearing a ring also forgets when its samples were taken.
enum class SlotTimes { Keep, Clear };

/// The newest samples of one storage, newest first. Everything is allocated at construction; adding moves an index.
/// Knows nothing of dictionaries, and leaves what makes a sample acceptable to its owner. Confined to its owner's queue.
class SampleRing {
public:
    /// No slots: stores nothing, finds nothing.
    SampleRing() = default;
    SampleRing(std::size_t slots, std::size_t valueCount);
    SampleRing(SampleRing&&) noexcept = default;
    SampleRing& operator=(SampleRing&&) noexcept = default;

    std::size_t size() const { return records_.size(); }
    std::size_t valueCount() const { return valueCount_; }
    bool contains(SlotIndex slot) const { return slot.value < size(); }

    /// The slot, which must exist.
    const statsample& operator[](SlotIndex slot) const { return records_[recordOf(slot)]; }
    /// The newest sample's identifier; 0 when there is none.
    std::uint64_t newestID() const { return records_.empty() ? 0 : records_[head_].sampleID; }
    /// When it was taken, seconds since 1970; 0 when there is none.
    double newestTime() const { return records_.empty() ? 0 : records_[head_].time; }
    /// The newest slot of this identifier, or null.
    const statsample* find(std::uint64_t sampleID) const;

    /// Makes room for a newest sample; the oldest falls off the end. Until it is written, slot 0 repeats what was the
    /// newest sample, so that a value which the new one lacks stays as it was.
    void shift();
    /// As shift, but only identifiers and times move: for owners whose values live elsewhere.
    void shiftLabels();

    void setLabel(SlotIndex slot, std::uint64_t sampleID, double time);
    void setID(SlotIndex slot, std::uint64_t sampleID);
    void setTime(SlotIndex slot, double time);
    void setEmpty(SlotIndex slot, std::int32_t empty);
    void setValue(SlotIndex slot, std::size_t index, double value);

    /// Every slot becomes empty, with identifier 0 and zero values.
    void clear(SlotTimes times);

    /// The mean of each value over the non-empty samples of the window.
    SampleAverages averages(AverageWindow window) const;
    /// The sum stayed strictly below the threshold.
    bool below(const ThresholdQuery& query) const;
    /// The sum stayed at or above the threshold.
    bool above(const ThresholdQuery& query) const;

private:
    std::size_t recordOf(SlotIndex slot) const
    {
        const std::size_t record = head_ + slot.value;
        return record < records_.size() ? record : record - records_.size();
    }
    template <typename Test>
    bool holds(const ThresholdQuery& query, Test test) const;

    std::vector<statsample> records_; ///< its values point into values_
    std::vector<double> values_;
    std::size_t valueCount_ = 0;
    std::size_t head_ = 0; ///< record of slot 0
};

} // namespace meridal
