// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/screen/StyledText.h"

namespace meridal {

/// The daemon's list of disks for people: one line a disk, what is wrong with it below, and its attributes if wanted.
/// `room` is the width that there is, 0 for any.
Lines diskLines(const Value& disks, bool attributes, int room = 0);

/// What disks do ("disks" of machine.state or moments.at): a line each with rates, how long requests take and how busy it is.
/// None where nothing is told. `room` as above.
Lines diskActivityLines(const Value& disks, int room = 0);

} // namespace meridal
