// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "metrics/MetricsSnapshot.h"

#include <functional>
#include <string>

namespace meridal {

struct BackfillQuestion {
    double from = 0;  ///< s since 1970
    double until = 0; ///< the same, not after now
    double now = 0;   ///< tells what finer parts of the record still reach
    MetricsOptions options;
};

/// Takes a piece of the text; false when no more is wanted.
using BackfillPrinter = std::function<bool(const std::string& piece)>;

/// Tells the record as OpenMetrics with times, by the names and labels that the same figures have now: each moment in the
/// finest resolution that still has it, applications' counters as sums from the first moment on. Asked series after
/// series and printed meanwhile, so that a year takes no more memory than a day. `done` is called once; only a text that is
/// whole has an end.
void askBackfill(const MetricsCaller& caller, const BackfillQuestion& question, BackfillPrinter print,
    std::function<void(Result<void>)> done);

} // namespace meridal
