// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"

#include <string>
#include <vector>

namespace meridal {

/// Runs a program by its path, with these words as argv and nothing else of this process but its root rights: no shell, no
/// descriptors, a plain environment. Waits up to so many seconds, then ends it. Success is exit status 0.
Result<void> runProgram(const std::vector<std::string>& words, double seconds);

} // namespace meridal
