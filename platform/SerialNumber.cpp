// SPDX-License-Identifier: Apache-2.0
#include "platform/SerialNumber.h"

#include <algorithm>
#include <charconv>

namespace meridal {

namespace {

// Letters that could be taken for a digit or form words are left out.
constexpr std::string_view halfYears = "CDFGHJKLMNPQRSTVWXYZ";
constexpr std::string_view weeks = "123456789CDFGHJKLMNPQRTVWXY";
constexpr int firstYearOfLetters = 2010;
constexpr int weeksOfHalfYear = 26;

/// Which models were made when the letters first stood for 2010 and 2011, and which when they did again: by major number,
/// as they were on sale.
struct Family {
    std::string_view name;
    int lastOf2011;
    int firstOf2020;
};

constexpr int none = 1000;

// Longer names before those they begin with.
constexpr Family families[] = {
    {"MacBookPro", 8, 15},
    {"MacBookAir", 4, 8},
    {"MacBook", 7, none},
    {"Macmini", 5, 8},
    {"MacPro", 5, 7},
    {"iMacPro", 0, 1},
    {"iMac", 12, 18},
    {"Mac", 0, 13},
    {"Xserve", 3, none},
};

const Family* familyOf(std::string_view model)
{
    const auto* found = std::find_if(
        std::begin(families), std::end(families), [&](const Family& family) { return model.starts_with(family.name); });
    return found == std::end(families) ? nullptr : found;
}

int majorNumber(std::string_view model, const Family& family)
{
    const std::string_view digits = model.substr(family.name.size());
    int number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

int digit(char character) { return character >= '0' && character <= '9' ? character - '0' : -1; }

std::optional<ManufactureDate> dateOfDigits(std::string_view serial)
{
    const int year = digit(serial[2]);
    const int tens = digit(serial[3]);
    const int ones = digit(serial[4]);
    if (year < 0 || tens < 0 || ones < 0) {
        return std::nullopt;
    }
    const int week = tens * 10 + ones;
    if (week < 1 || week > 53) {
        return std::nullopt;
    }
    return ManufactureDate{.year = (year < 3 ? 2010 : 2000) + year, .week = week};
}

std::optional<ManufactureDate> dateOfLetters(std::string_view serial, const Family& family, int major)
{
    const std::size_t half = halfYears.find(serial[3]);
    const std::size_t week = weeks.find(serial[4]);
    if (half == std::string_view::npos || week == std::string_view::npos) {
        return std::nullopt;
    }
    // Only the first letters have come round again: random serials took over in 2021.
    const bool ambiguous = half < 4;
    if (ambiguous && major > family.lastOf2011 && major < family.firstOf2020) {
        return std::nullopt; // the serial is not this model's: a board from elsewhere
    }
    const int round = ambiguous && major >= family.firstOf2020 ? 10 : 0;
    return ManufactureDate{
        .year = firstYearOfLetters + round + static_cast<int>(half / 2),
        .week = static_cast<int>(week) + 1 + (half % 2 == 1 ? weeksOfHalfYear : 0),
    };
}

} // namespace

std::optional<ManufactureDate> manufactureDate(std::string_view serial, std::string_view modelIdentifier)
{
    const Family* family = familyOf(modelIdentifier);
    if (!family) {
        return std::nullopt;
    }
    switch (serial.size()) {
    case 11:
        return dateOfDigits(serial);
    case 12:
        return dateOfLetters(serial, *family, majorNumber(modelIdentifier, *family));
    default:
        return std::nullopt;
    }
}

} // namespace meridal
