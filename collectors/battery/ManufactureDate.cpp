#include "collectors/battery/ManufactureDate.h"

#include "base/Value.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <string_view>

namespace meridal {

namespace {

constexpr int packedBase = 1980;
constexpr int writtenBase = 1992;
constexpr std::size_t writtenDigits = 6;

std::optional<double> timeOfDay(int year, unsigned month, unsigned day)
{
    const std::chrono::year_month_day date =
        std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day);
    if (!date.ok()) {
        return std::nullopt;
    }
    const auto days = std::chrono::sys_days(date).time_since_epoch();
    return static_cast<double>(std::chrono::duration_cast<std::chrono::seconds>(days).count());
}

std::optional<double> timeOfDigits(std::string_view digits)
{
    const bool valid = digits.size() == writtenDigits
        && std::all_of(digits.begin(), digits.end(), [](char each) { return each >= '0' && each <= '9'; });
    if (!valid) {
        return std::nullopt;
    }
    const auto pair = [&](std::size_t at) { return (digits[at] - '0') * 10 + (digits[at + 1] - '0'); };
    return timeOfDay(writtenBase + pair(0), static_cast<unsigned>(pair(2)), static_cast<unsigned>(pair(4)));
}

} // namespace

std::optional<double> packedManufactureDate(std::int64_t packed)
{
    if (packed <= 0 || packed > 0xFFFF) {
        return std::nullopt;
    }
    const auto bits = static_cast<unsigned>(packed);
    return timeOfDay(packedBase + static_cast<int>(bits >> 9U), bits >> 5U & 0xFU, bits & 0x1FU);
}

std::optional<double> writtenManufactureDate(const Value& date)
{
    if (date.is_string()) {
        return timeOfDigits(date.get_ref<const std::string&>());
    }
    if (!date.is_number_integer()) {
        return std::nullopt;
    }
    // Some drivers hand the six bytes over as a number, lowest first as in memory.
    std::string digits;
    for (auto rest = date.get<std::uint64_t>(); rest != 0; rest >>= 8U) {
        digits += static_cast<char>(rest & 0xFFU);
    }
    if (const auto time = timeOfDigits(digits)) {
        return time;
    }
    std::reverse(digits.begin(), digits.end());
    return timeOfDigits(digits);
}

std::optional<double> manufactureDate(const Dictionary& battery)
{
    const Value* data = find(battery, "BatteryData");
    const Value* written = data ? find(*data, "ManufactureDate") : nullptr;
    if (const auto time = written ? writtenManufactureDate(*written) : std::nullopt) {
        return time;
    }
    const auto packed = integer(battery, "ManufactureDate");
    return packed ? packedManufactureDate(*packed) : std::nullopt;
}

} // namespace meridal
