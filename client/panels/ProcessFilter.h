// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <string_view>

namespace meridal {

/// The `filter` of processes.table that a person means by "ssh", "user:anna python", "unit:nginx", "pid:4711", "/^kworker/": words with
/// a field in front go by that field, all else is part of a name or of a command line, and between slashes a regular expression.
Value processFilterFrom(std::string_view typed);

} // namespace meridal
