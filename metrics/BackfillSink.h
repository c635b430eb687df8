// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "metrics/Backfill.h"
#include "metrics/MetricsWriter.h"

#include <utility>

namespace meridal {

/// Where the text of a backfill goes, piece by piece.
class BackfillSink {
public:
    explicit BackfillSink(BackfillPrinter print) : print_(std::move(print)) { }

    void family(const MetricFamily& family) { writer_.family(family); }
    void sample(double time, const std::string& labels, double value)
    {
        writer_.sampleAt(time, labels, value);
        if (++lines_ % linesAtOnce == 0) {
            flush();
        }
    }
    void finish()
    {
        flush();
        isTaken_ = isTaken_ && print_(writer_.finish());
    }
    /// Whether somebody still takes it.
    bool isTaken() const { return isTaken_; }

private:
    static constexpr std::size_t linesAtOnce = 500;

    void flush() { isTaken_ = isTaken_ && print_(writer_.take()); }

    BackfillPrinter print_;
    MetricsWriter writer_{MetricsFormat::OpenMetrics};
    std::size_t lines_ = 0;
    bool isTaken_ = true;
};

} // namespace meridal
