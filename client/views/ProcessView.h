// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/screen/StyledText.h"

namespace meridal {

/// An answer of "process.details".
Lines processDetailLines(const Value& answer, int room);

} // namespace meridal
