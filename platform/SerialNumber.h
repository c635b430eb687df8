// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string_view>

namespace meridal {

/// When a machine was made, as its serial number tells it.
struct ManufactureDate {
    int year = 0;
    int week = 0; ///< of the year, from 1
    bool operator==(const ManufactureDate&) const = default;
};

/// Reads the date out of the two serial number forms that hold one. Eleven characters (2003 to 2010): the third is the
/// last digit of the year, the fourth and fifth the week. Twelve characters (2010 to 2021): the fourth is a letter for
/// the half-year, the fifth one for the week in it; the letters began again in 2020, so the years in which the model was
/// made decide between the decades. Empty for the random serials made since, for a model that was made in neither, and
/// for anything that is not such a machine's.
std::optional<ManufactureDate> manufactureDate(std::string_view serial, std::string_view modelIdentifier);

} // namespace meridal
