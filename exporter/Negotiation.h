// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "metrics/MetricsWriter.h"

#include <string_view>

namespace meridal {

// What a scraper understands, by the headers of its request (RFC 9110, 12.5). Several headers of one name are one, with
// commas between. What makes no sense in them is passed over.

/// By Accept: OpenMetrics for who names it and wants it no less than the older format, which all others get: it is also
/// right for who names neither.
MetricsFormat formatFor(std::string_view accept);

/// By Accept-Encoding.
bool takesGzip(std::string_view acceptEncoding);

} // namespace meridal
