// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/commands/Session.h"

#include <cstddef>
#include <functional>
#include <string>

namespace meridal {

/// A question whose answer comes in pages.
struct PagedQuestion {
    std::string method;
    std::string list;             ///< the entry of an answer that has the rows
    std::string cursor = "after"; ///< the parameter that goes on behind the last row
    std::string entry = "key";    ///< of that row, what the cursor takes; an answer with "next" says it by that
    bool isBackwards = false;     ///< each page has what lies before the page that came first
    Value parameters = Value::object();
    std::size_t wanted = 100'000; ///< rows
    std::size_t page = 500;       ///< rows that the daemon gives at once
    bool mayBeRefused = false;    ///< then `use` gets what there was until then, and null
};

/// Asks page after page until there are as many rows as wanted, or no more. `use` gets them all, and the last answer.
/// An answer without rows ends the session.
void askPages(Session& session, PagedQuestion question, std::function<void(Value rows, const Value& last)> use);

} // namespace meridal
