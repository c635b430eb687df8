// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "metrics/MetricsSnapshot.h"
#include "metrics/MetricsWriter.h"

#include <string>
#include <vector>

namespace meridal {

/// One figure of a recorded series, which is a series of metrics.
struct BackfilledFigure {
    std::string series; ///< of history.series
    std::string column; ///< of its samples
    std::string labels; ///< as they are written
    double divisor = 1; ///< from the daemon's unit to the base unit
};

struct RecordedFamily {
    MetricFamily family;
    std::vector<BackfilledFigure> figures;
};

/// What of the daemon's history.series metrics are made of, by the names and labels that they have now. `now` tells those of
/// sensors and batteries that are there. With `all` also the machine's own figures.
std::vector<RecordedFamily> recordedFamilies(const Value& series, const MetricsSnapshot& now, bool all);

} // namespace meridal
