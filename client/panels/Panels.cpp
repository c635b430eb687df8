// SPDX-License-Identifier: Apache-2.0
#include "client/panels/Panels.h"

namespace meridal {

std::vector<std::unique_ptr<Panel>> allPanels()
{
    std::vector<std::unique_ptr<Panel>> panels;
    for (const auto make : {makeOverviewPanel, makeProcessesPanel, makeSensorsPanel, makeDisksPanel, makeNetworkPanel,
             makeApplicationsPanel, makeBatteryPanel, makeHistoryPanel, makeMomentPanel}) {
        panels.push_back(make());
    }
    return panels;
}

} // namespace meridal
