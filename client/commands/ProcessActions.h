// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/panels/PanelWish.h"

#include <string>
#include <vector>

namespace meridal {

// What a person may do to processes, with no rights but the person's own: the daemon has no part in it. A process that is no longer
// the one that was seen, by when it started, is left alone. Each answers in words what was done and what was not.

std::string sendSignal(const std::vector<SeenProcess>& processes, int signal);
/// Of all its threads.
std::string setNice(const SeenProcess& process, int nice);

} // namespace meridal
