// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "daemon/MomentRecord.h"

namespace meridal {

/// Adds what was measured: "cpu", "load", "memory", "swap", "pressure" and so on, "temperatures", "fans", "disks",
/// "battery", "others". What nothing is recorded of is left out, or an empty array.
void addFigures(const MomentRecord& record, Value& answer);
/// Adds the figures that became others around the moment, where that matters: {"time", "what", "from", "to", "unit"}.
void addFigureChanges(const MomentRecord& record, Value& changes);

/// Figures of the machine as a whole have a period each 6 s: one that has just ended speaks for the moment after it.
constexpr double usualSlack = 15; // s
/// Disks are asked for their temperature every five minutes, or half an hour.
constexpr double slackOfDisks = 2000; // s

} // namespace meridal
