// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/screen/StyledText.h"
#include "client/views/ApplicationsView.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

/// What one application uses at this moment.
struct ApplicationRate {
    Value group;                   ///< "group", "name", "kind", "user" and the counters as the daemon told them last
    std::optional<double> cpu;     ///< % of one core; absent until there are two readings, as are the other rates
    std::optional<double> energy;  ///< W where the processors tell joules, else the score
    std::optional<double> memory;  ///< bytes
    std::optional<double> disk;    ///< bytes a second, read and written
    std::optional<double> network; ///< bytes a second, received and sent
    std::optional<double> processes;
};

/// Takes the daemon's totals of applications, which only grow, and tells what is used between two of them.
class ApplicationRates {
public:
    /// An answer of groups.totals or groups.watch, or one of its notifications.
    void take(const Value& answer);
    void clear() { *this = {}; }

    /// Whether anything has been told yet.
    bool isKnown() const { return time_.has_value(); }
    /// Largest first; what is no application's comes last.
    std::vector<ApplicationRate> ranked(ApplicationFigure figure) const;

private:
    using Identity = std::pair<std::string, std::optional<std::int64_t>>; ///< and its user
    static Identity identityOf(const Value& group);

    std::optional<double> time_;  ///< s since 1970, of the latest answer
    std::optional<double> since_; ///< s since 1970, when the daemon began to count
    std::map<Identity, ApplicationRate> rates_;
};

/// The figure that applications are ranked by.
std::optional<double> figureOf(const ApplicationRate& rate, ApplicationFigure figure);

/// Rates as a table, in their order; `room` is the width that there is, 0 for any. The figure that they are ranked by
/// stays longest, and its title is marked.
Lines applicationRateLines(const std::vector<ApplicationRate>& rates, ApplicationFigure figure, int room = 0);

} // namespace meridal
