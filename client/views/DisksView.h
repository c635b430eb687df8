// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/screen/StyledText.h"

namespace meridal {

/// The daemon's list of disks for people: one line a disk, what is wrong with it below, and its attributes if wanted.
/// `room` is the width that there is, 0 for any.
Lines diskLines(const Value& disks, bool attributes, int room = 0);

} // namespace meridal
