// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <span>
#include <string>
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

/// The rows of history.series, labelled, in their order.
std::vector<OfferedSeries> offeredSeries(const Value& rows);

} // namespace meridal
