// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "metrics/BackfillSink.h"

#include <functional>
#include <memory>

namespace meridal {

/// What applications used, as recorded: the largest of the time, as many as the options say, and all others together. Counters
/// are sums from the first moment on.
void backfillGroups(const MetricsCaller& caller, const BackfillQuestion& question,
    const std::shared_ptr<BackfillSink>& sink, std::function<void(Result<void>)> done);

} // namespace meridal
