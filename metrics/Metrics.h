// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "metrics/MetricsSnapshot.h"
#include "metrics/MetricsWriter.h"

#include <string>

namespace meridal {

/// All current figures of the daemon, as they are scraped. Of a daemon that is away only that.
std::string metricsText(const MetricsSnapshot& snapshot, const MetricsOptions& options, MetricsFormat format);

} // namespace meridal
