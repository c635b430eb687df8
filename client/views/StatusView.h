// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/screen/StyledText.h"

namespace meridal {

/// The daemon's `status` for people: one line a subject, without what the daemon did not say.
Lines statusLines(const Dictionary& status);

} // namespace meridal
