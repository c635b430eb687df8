// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// How one series of recorded samples can be called.
struct OfferedSeries {
    std::string series;      ///< in full: "sensors/TC0P"
    std::string key;         ///< "TC0P"; may be empty
    std::string name;        ///< for people: "CPU Proximity"
    std::string origin = {}; ///< the chip or the device: "coretemp-isa-0000"; may be empty
    std::string label = {};  ///< what no other is called: "coretemp/Core 0"; see labelSeries()
};

/// Gives each series a label: where it belongs to and what it is. Of a chip only the driver's name is told where no other
/// chip has it.
void labelSeries(std::span<OfferedSeries> all);

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
