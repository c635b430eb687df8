#pragma once

#include "base/Value.h"
#include "client/plot/Plot.h"

#include <string>

namespace meridal {

/// What to draw of the daemon's samples ("samples", "values", "interval", "unit" of history.samples), between two
/// moments in seconds since 1970. One line a value.
Plot historyPlot(const Value& answer, const std::string& title, double from, double until);

/// The samples as comma-separated values: a heading, then a row a sample with its time in UTC. Gaps have no rows.
std::string historyCsv(const Value& answer);

} // namespace meridal
