// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/screen/StyledText.h"

namespace meridal {

/// The daemon's answer about boots for people, with a table of them or without. Times are local.
Lines uptimeLines(const Value& answer, bool history);

} // namespace meridal
