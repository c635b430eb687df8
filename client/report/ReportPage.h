// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/check/CheckReport.h"
#include "client/views/ApplicationsView.h"
#include "client/views/HistoryView.h"

#include <string>
#include <utility>
#include <vector>

namespace meridal {

/// What a report of one machine is made of: answers of the daemon. What is null or empty is left out, but for the health.
struct ReportSources {
    double now = 0; ///< s since 1970
    double from = 0;
    double until = 0;
    std::string time; ///< what people call it: "last week"
    Value info;       ///< machine.info
    CheckReport check;
    std::vector<std::pair<ApplicationFigure, Value>> applications; ///< rows of groups.history by each figure
    std::vector<HistoryCurve> load;                                ///< what the machine did, and its temperatures,
    std::vector<HistoryCurve> temperatures;                        ///< as history.samples
    std::vector<HistoryCurve> fans;
    std::vector<HistoryCurve> charge;
    std::string trafficBy; ///< "day"
    Value traffic;         ///< rows of bandwidth.totals
    Value disks;           ///< rows of disks.list
    Value battery;         ///< battery.state, with "history" as `meridalctl battery` has it
    Value boots;           ///< uptime.boots
};

/// One page of HTML that needs nothing else.
std::string reportPage(const ReportSources& sources);

} // namespace meridal
