// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <span>
#include <string>

namespace meridal {

/// An answer of the daemon as a line of JSON for programs: moments, which it tells in seconds since 1970, as ISO 8601 with the
/// zone, all else as it came.
std::string answerLine(Value answer);

/// Rows as comma-separated values: a heading, then a line a row, with those of the columns that any row has (all when there are
/// no rows). A column is the key of an entry; "bytes.received" is an entry of an entry. Moments are ISO 8601, lists are one
/// field with blanks between, what is not known is nothing.
std::string csvOf(const Value& rows, std::span<const char* const> columns);

} // namespace meridal
