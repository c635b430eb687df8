// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/screen/StyledText.h"

namespace meridal {

/// The answer to "moments.at" as a page; `room` is the width that there is, 0 for any.
Lines atLines(const Value& answer, double now, int room = 0);

/// Of it what was known of batteries: where the power came from, and how much there was.
Lines batteryLinesAt(const Value& answer);

} // namespace meridal
