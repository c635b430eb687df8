// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace meridal {

/// Puts a file that everybody may read (0644) in the place of another or of none: who reads meets the old content or the new
/// one, never half of it. What is there and no plain file stays. Answers why not, or nothing.
std::string replaceFile(const std::string& path, const std::string& content);

} // namespace meridal
