// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <memory>

namespace meridal {

/// Runs a task on the main queue whenever there is something to read. Takes the descriptor, which may be used as long as the
/// watch is there, and is closed when the system has let go of it: closed before, its number could be another file's while
/// events of the old one are still under way.
std::unique_ptr<Watch> watchOwned(int descriptor, Task task);

} // namespace meridal
