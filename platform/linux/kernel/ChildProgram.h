// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// Runs a program by its path, with these words as argv and nothing else of this process but its root rights: no shell, no
/// descriptors, a plain environment. Waits up to so many seconds, then ends it. Success is exit status 0.
Result<void> runProgram(const std::vector<std::string>& words, double seconds);

/// The same, and hands on what it writes to its standard output as it comes, until `take` says that it is enough: false. The
/// seconds are for each piece, and for the end.
Result<void> readProgram(
    const std::vector<std::string>& words, double seconds, const std::function<bool(std::string_view)>& take);

} // namespace meridal
