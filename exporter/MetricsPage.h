// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "metrics/Metrics.h"

#include <map>
#include <memory>
#include <string>

namespace meridal {

/// What goes over the wire, held by all connections that send it.
using SharedText = std::shared_ptr<const std::string>;

/// One answer of the daemon as metrics, each form of it written when it is first wanted.
class MetricsPage {
public:
    MetricsPage(MetricsSnapshot snapshot, const MetricsOptions& options);

    SharedText text(MetricsFormat format);
    /// The same compressed; null where that fails.
    SharedText gzip(MetricsFormat format);

private:
    const MetricsSnapshot snapshot_;
    const MetricsOptions options_;
    std::map<MetricsFormat, SharedText> texts_;
    std::map<MetricsFormat, SharedText> compressed_;
};

} // namespace meridal
