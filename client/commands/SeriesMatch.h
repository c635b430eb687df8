// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/views/SeriesLabels.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace meridal {

struct SeriesMatch {
    std::optional<std::size_t> found;
    /// Where nothing, or more than one, was found: what may have been meant, likeliest first.
    std::vector<std::size_t> candidates;
    bool isAmbiguous = false; ///< the candidates all fit
};

/// Which series a person means: one of that full name, label, key or name, else the only one that has the words in it.
/// Upper and lower case are one; a key in its own case comes before one in another.
SeriesMatch matchSeries(std::span<const OfferedSeries> all, std::string_view wanted);

} // namespace meridal
