// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/views/ApplicationRates.h"

#include <vector>

namespace meridal {

// The answer of moments.at in the shapes in which the present is told, for views of the present. What was not recorded is left
// out; an answer of any shape gives something.

/// As machine.state.
Value machineOfMoment(const Value& moment);
/// As the entries of sensors.list, with the limits of today: those of `listedNow` by key.
Value sensorsOfMoment(const Value& moment, const Value& listedNow);
/// As the entries of network.interfaces, with names and rates alone.
Value interfacesOfMoment(const Value& moment);
/// As battery.state; an empty object where nothing was told.
Value batteryOfMoment(const Value& moment);
/// What applications used in that minute, ranked by a figure.
std::vector<ApplicationRate> ratesOfMoment(const Value& moment, ApplicationFigure figure);
/// As processes.table, of the largest of that minute: "pid", "name", "cpu", "footprint".
Value processesOfMoment(const Value& moment);

} // namespace meridal
