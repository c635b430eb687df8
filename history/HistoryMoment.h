// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "history/HistoryReader.h"
#include "history/SampleRecords.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace meridal {

/// What a recorder has of one moment and the minutes around it, in every resolution that reaches back so far.
class HistoryMoment {
public:
    /// What was measured over a time.
    struct Sample {
        StorageIndex index = StorageIndex::Hour;
        double from = 0; ///< s since 1970
        double until = 0;
        std::span<const double> values; ///< absentFigure is what was not measured; as long as the HistoryMoment
    };

    /// s since 1970
    HistoryMoment(double time, double now) : time_(time), now_(now) { }

    /// What is to be read of a storage.
    TimeSpan spanOf(StorageIndex index) const;
    void add(StorageIndex index, RowsOfSpan rows);

    /// Of an item, or with an empty key of the recorder itself: what the finest resolution that reaches back so far has of
    /// the moment. For what is measured seldom, coarser ones whose periods are of about twice `slack` (s) must do, or the
    /// latest that ended at most so long before it.
    std::optional<Sample> at(const std::string& key, double slack) const;
    /// All that this resolution has of the minutes before and after, oldest first.
    std::vector<Sample> around(const std::string& key, double slack) const;
    /// The items of which there is anything.
    std::vector<std::string> keys() const;
    /// Since when, and up to when, anything is recorded, s since 1970; 0: nothing is.
    double oldest() const { return oldest_; }
    double newest() const { return newest_; }

    static constexpr double minutesAround = 300; ///< s before, and after

private:
    struct Layer {
        StorageIndex index = StorageIndex::Hour;
        RowsOfSpan found;
    };

    double lengthOf(StorageIndex index) const;
    Sample sampleOf(const Layer& layer, std::size_t row) const;
    template <typename Function>
    static void forEachRow(const Layer& layer, const std::string& key, Function function);
    const Layer* covering(const std::string& key, double slack) const;

    double time_;
    double now_;
    std::vector<Layer> layers_; ///< by the length of their periods
    double oldest_ = 0;
    double newest_ = 0;
};

} // namespace meridal
