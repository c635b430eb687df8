// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/screen/StyledText.h"

namespace meridal {

/// The daemon's answer about batteries for people; with its entry "history" also what was recorded, as a plot of so many
/// columns and as a list, newest first. Times are local. One line where there is no battery at all.
Lines batteryLines(const Value& answer, int columns = 80);

} // namespace meridal
