// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "metrics/RecordPages.h"

#include <functional>
#include <string>
#include <vector>

namespace meridal {

/// A time of which applications are recorded in periods of one length.
struct RecordedStretch {
    std::string step;   ///< of groups.history
    double seconds = 0; ///< of a period; of a month the mean
    double from = 0;    ///< s since 1970: periods that start then or later
    double until = 0;   ///< and before this
};

/// The stretches of a time, oldest first: each moment in the shortest periods that are still kept of it, no period in two of
/// them.
void findRecordedStretches(const MetricsCaller& caller, double from, double until,
    std::function<void(Result<std::vector<RecordedStretch>>)> done);

} // namespace meridal
