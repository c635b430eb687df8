// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "history/SampleRecords.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
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
    std::array<double, maximumValues> lowest = {}; ///< of the samples averaged; of no meaning where the mean is absent
    std::array<double, maximumValues> highest = {};
    std::size_t valueCount = 0;
    std::size_t samples = 0;  ///< how many were averaged
    std::uint64_t oldest = 1; ///< identifiers of the first and the last of them
    std::uint64_t newest = 0;

    /// One a value, absentFigure where no sample has it; none without samples.
    std::span<const double> figures() const { return std::span(values).first(samples == 0 ? 0 : valueCount); }
};

/// "Has the sum of these values been beyond the threshold for the last seconds?"
struct ThresholdQuery {
    std::span<const std::size_t> indexes; ///< values to add up; those that a sample lacks count nothing
    double threshold = 0;
    double seconds = 0; ///< negative: only the newest sample counts
    double now = 0;     ///< s since 1970
};

/// The newest samples of one storage, newest first. Takes memory as it fills, up to its slots; from then on adding moves an
/// index. Leaves what makes a sample acceptable to its owner. Confined to its owner's queue.
class SampleRing {
public:
    /// No slots: stores nothing, finds nothing.
    SampleRing() = default;
    SampleRing(std::size_t slots, std::size_t valueCount);
    SampleRing(SampleRing&&) noexcept = default;
    SampleRing& operator=(SampleRing&&) noexcept = default;

    /// The slots, filled or not.
    std::size_t size() const { return slots_; }
    std::size_t valueCount() const { return valueCount_; }
    /// What it takes now, in bytes.
    std::size_t memory() const { return stamps_.capacity() * sizeof(Stamp) + values_.capacity() * sizeof(double); }

    /// The slot, which must exist; one that was never filled is an empty sample of no time. A view: see statsample.
    statsample operator[](SlotIndex slot) const;
    /// The newest sample's identifier; 0 when there is none.
    std::uint64_t newestID() const { return stamps_.empty() ? 0 : stamps_[newest_].sampleID(); }
    /// When it was taken, seconds since 1970; 0 when there is none.
    double newestTime() const { return stamps_.empty() ? 0 : stamps_[newest_].time; }
    /// The newest sample of this identifier.
    std::optional<statsample> find(std::uint64_t sampleID) const;

    /// Adds a newest sample; the oldest falls off the end. What is no finite number, and values that are left out, are
    /// absent. Allocates nothing once all slots are filled.
    void push(std::uint64_t sampleID, double time, std::span<const double> values);

    /// The mean of each value over the samples of the window that have it.
    SampleAverages averages(AverageWindow window) const;

    // Of the interface, and called by nothing here
    /// The sum stayed strictly below the threshold.
    bool below(const ThresholdQuery& query) const;
    /// The sum stayed at or above the threshold.
    bool above(const ThresholdQuery& query) const;

private:
    /// Of one sample, in 16 bytes: there are hundreds of every thing that is recorded.
    struct Stamp {
        std::uint64_t mark = 0; ///< twice the identifier, and one more where anything was measured
        double time = 0;

        std::uint64_t sampleID() const { return mark / 2; }
        bool isMeasured() const { return mark % 2 != 0; }
    };

    std::size_t recordOf(SlotIndex slot) const
    {
        return slot.value <= newest_ ? newest_ - slot.value : newest_ + slots_ - slot.value;
    }
    const double* valuesOf(std::size_t record) const { return values_.data() + record * valueCount_; }
    std::size_t nextRecord();
    template <typename Function>
    void forEachIn(AverageWindow window, Function function) const;
    double meanOfPresent(AverageWindow window, std::size_t index) const;
    template <typename Test>
    bool holds(const ThresholdQuery& query, Test test) const;

    std::vector<Stamp> stamps_;  ///< those that are filled; oldest first until all are, then in a circle
    std::vector<double> values_; ///< in the same order
    std::size_t slots_ = 0;
    std::size_t valueCount_ = 0;
    std::size_t newest_ = 0; ///< record of slot 0
};

} // namespace meridal
