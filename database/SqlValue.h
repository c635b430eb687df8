// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace meridal {

/// One argument of a statement, or one column of a row; the first kind is NULL.
using SqlValue = std::variant<std::monostate, std::int64_t, double, std::string>;
using SqlValues = std::vector<SqlValue>;

/// Booleans become 0 and 1; arrays, objects and numbers that are not finite become NULL.
SqlValue sqlValue(const Value& value);
/// NULL becomes null; text that is not UTF-8 is repaired.
Value valueOf(const SqlValue& value);
/// The value as a number; NULL and text count as 0.
double sqlNumber(const SqlValue& value);
std::int64_t sqlInteger(const SqlValue& value); ///< likewise
/// The value as text, made valid UTF-8; NULL and numbers count as none.
std::string sqlWords(const SqlValue& value);

/// A statement that waits for its commit. In the format "%@" stands for the table and "?" for each argument. Tables are
/// named by constants of ours only: a name cannot be an argument, so it must never come from a client.
struct PendingStatement {
    std::string table;
    std::string format;
    SqlValues args;
};

/// The format with the table in place of every "%@".
std::string sqlText(std::string_view format, std::string_view table);

} // namespace meridal
