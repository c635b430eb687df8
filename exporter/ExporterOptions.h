// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "metrics/MetricsSnapshot.h"

#include <string>
#include <variant>
#include <vector>

namespace meridal {

/// What the command line says.
struct ExporterOptions {
    std::string socketPath; ///< the daemon's
    std::vector<std::string> listen;
    MetricsOptions metrics;
};

/// Understands the command line, or has printed help or a complaint: then the exit status.
std::variant<ExporterOptions, int> parseExporterOptions(int count, const char* const* argv);

} // namespace meridal
