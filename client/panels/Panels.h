// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/panels/Panel.h"

#include <memory>
#include <vector>

namespace meridal {

// Each makes the panel of one file, which is called as it is.
std::unique_ptr<Panel> makeOverviewPanel();
std::unique_ptr<Panel> makeProcessesPanel();
std::unique_ptr<Panel> makeSensorsPanel();
std::unique_ptr<Panel> makeDisksPanel();
std::unique_ptr<Panel> makeNetworkPanel();
std::unique_ptr<Panel> makeApplicationsPanel();
std::unique_ptr<Panel> makeBatteryPanel();
std::unique_ptr<Panel> makeHistoryPanel();
std::unique_ptr<Panel> makeMomentPanel();

/// All panels in the order of their digits.
std::vector<std::unique_ptr<Panel>> allPanels();

} // namespace meridal
