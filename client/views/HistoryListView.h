// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/plot/Plot.h"
#include "client/screen/StyledText.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace meridal {

/// One recorded figure in a list of all.
struct RecordedFigure {
    std::string group; ///< who records it: "sensors"
    std::string label; ///< what it is called
    std::string unit;
    std::optional<double> latest;
    std::vector<PlotPoint> points; ///< of the time that the list is about
};

/// What is recorded: a line a figure under the name of its group, with its latest value, how it went between two moments
/// (s since 1970), and the lowest and the highest of that. `time` is what people call that time; `room` the width that
/// there is, 0 for any.
Lines historyListLines(
    std::span<const RecordedFigure> figures, const std::string& time, double from, double until, int room = 0);

} // namespace meridal
