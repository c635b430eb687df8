// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "base/Value.h"
#include "metrics/MetricsSnapshot.h"

#include <functional>
#include <string>

namespace meridal {

/// A question about the record, whose answer comes in pages.
struct RecordQuestion {
    std::string method;
    std::string list; ///< the entry of an answer that has the rows
    std::string cursor =
        "after"; ///< the parameter that goes on behind a page: by its "next", else by its last row's `entry`
    std::string entry = "series";
    Value parameters = Value::object();
    bool onlyFirst = false; ///< no further page
};

/// Asks page after page. `take` gets each answer that has rows, `done` is called once. What the daemon does not know (any
/// more) is nothing, not a failure.
void askRecordPages(const MetricsCaller& caller, RecordQuestion question,
    std::function<void(const Value& rows, const Value& page)> take, std::function<void(Result<void>)> done);

} // namespace meridal
