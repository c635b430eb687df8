#pragma once

#include "base/Value.h"
#include "collectors/disks/SMARTAttributeTable.h"

#include <array>
#include <cstdint>

namespace meridal {

/// A raw value as its format reads it.
struct SMARTRawValue {
    double figure = 0; ///< the main figure, in the unit of the format: a count, h, °C, bytes
    Value shown;       ///< the figure itself where it has no unit and no company, else text
};

/// `raw` holds the six bytes; `wide` is the same number, or that of 64 bits in the formats that have it.
SMARTRawValue readRawValue(RawFormat format, const std::array<std::uint8_t, 6>& raw, std::uint64_t wide);

} // namespace meridal
