// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "metrics/RecordPages.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// All samples of one recorded series, in order of time, in as little memory as that takes: the years of a series are some
/// 50,000 rows.
class RecordedSamples {
public:
    const std::string& series() const { return series_; }
    /// Calls `use` with each moment (s since 1970) and what a column had then.
    void forEach(std::string_view column, const std::function<void(double time, double value)>& use) const;

private:
    friend class RecordedSamplesReader;

    std::string series_;
    std::vector<std::string> columns_;
    std::vector<double> cells_;      ///< a row: time, then the columns; NaN: not measured
    std::vector<std::size_t> order_; ///< of rows, by time
};

/// Reads a series from one moment until before another: each moment in the finest resolution that still has it.
void readRecordedSamples(const MetricsCaller& caller, const std::string& series, double from, double until, double now,
    std::function<void(Result<RecordedSamples>)> done);

} // namespace meridal
