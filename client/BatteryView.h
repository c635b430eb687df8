#pragma once

#include "base/Value.h"
#include "client/StyledText.h"

namespace meridal {

/// The daemon's answer about batteries for people; with its entry "history" also what was recorded, newest first. Times
/// are local. One line where there is no battery at all.
Lines batteryLines(const Value& answer);

} // namespace meridal
