#include "platform/formats/ManufactureDate.h"

#include "base/Value.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace meridal {

namespace {

using Day = std::chrono::year_month_day;

constexpr int packedBase = 1980;
constexpr int writtenBase = 1992;
constexpr std::size_t writtenDigits = 6;

std::optional<Day> dayOf(int year, unsigned month, unsigned day)
{
    const Day date = std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day);
    return date.ok() ? std::optional(date) : std::nullopt;
}

std::optional<Day> dayOfDigits(std::string_view digits)
{
    const bool valid = digits.size() == writtenDigits
        && std::all_of(digits.begin(), digits.end(), [](char each) { return each >= '0' && each <= '9'; });
    if (!valid) {
        return std::nullopt;
    }
    const auto pair = [&](std::size_t at) { return (digits[at] - '0') * 10 + (digits[at + 1] - '0'); };
    return dayOf(writtenBase + pair(0), static_cast<unsigned>(pair(2)), static_cast<unsigned>(pair(4)));
}

/// Day in bits 0 to 4, month in bits 5 to 8, years since 1980 in bits 9 to 15.
std::optional<Day> dayOfPacked(std::int64_t packed)
{
    if (packed <= 0 || packed > 0xFFFF) {
        return std::nullopt;
    }
    const auto bits = static_cast<unsigned>(packed);
    return dayOf(packedBase + static_cast<int>(bits >> 9U), bits >> 5U & 0xFU, bits & 0x1FU);
}

/// Six digits YYMMDD that count years from 1992, as text or as the bytes of a number.
std::optional<Day> dayOfWritten(const Value& date)
{
    if (date.is_string()) {
        return dayOfDigits(date.get_ref<const std::string&>());
    }
    if (!date.is_number_integer()) {
        return std::nullopt;
    }
    // Some drivers hand the six bytes over as a number, lowest first as in memory.
    std::string digits;
    for (auto rest = date.get<std::uint64_t>(); rest != 0; rest >>= 8U) {
        digits += static_cast<char>(rest & 0xFFU);
    }
    if (const auto day = dayOfDigits(digits)) {
        return day;
    }
    std::reverse(digits.begin(), digits.end());
    return dayOfDigits(digits);
}

} // namespace

std::optional<Day> manufactureDate(const Dictionary& battery)
{
    const Value* data = find(battery, "BatteryData");
    const Value* written = data ? find(*data, "ManufactureDate") : nullptr;
    if (const auto day = written ? dayOfWritten(*written) : std::nullopt) {
        return day;
    }
    const auto packed = integer(battery, "ManufactureDate");
    return packed ? dayOfPacked(*packed) : std::nullopt;
}

} // namespace meridal
