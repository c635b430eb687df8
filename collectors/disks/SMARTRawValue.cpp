// SPDX-License-Identifier: Apache-2.0
#include "collectors/disks/SMARTRawValue.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

namespace meridal {

namespace {

/// A byte that stands for "no reading" in a temperature.
constexpr std::uint8_t absentTemperature = 128;

constexpr std::array<std::pair<std::string_view, RawFormat>, 19> formatNames = {{
    {"raw8", RawFormat::Raw8},
    {"raw16", RawFormat::Raw16},
    {"hex48", RawFormat::Hex48},
    {"hex64", RawFormat::Hex64},
    {"raw16(raw16)", RawFormat::Raw16Extra},
    {"raw64", RawFormat::Raw64},
    {"raw48", RawFormat::Raw48},
    {"raw24(raw8)", RawFormat::Raw24Extra},
    {"raw16(avg16)", RawFormat::Average16},
    {"raw56", RawFormat::Raw56},
    {"hex56", RawFormat::Hex56},
    {"raw24/raw24", RawFormat::Raw24Pair},
    {"raw24/raw32", RawFormat::Raw24Of32},
    {"min2hour", RawFormat::Minutes},
    {"sec2hour", RawFormat::Seconds},
    {"halfmin2hour", RawFormat::HalfMinutes},
    {"msec24hour32", RawFormat::HoursMilliseconds},
    {"tempminmax", RawFormat::Temperature},
    {"temp10x", RawFormat::TemperatureTenths},
}};

std::string_view usualOrder(RawFormat format)
{
    switch (format) {
    case RawFormat::Raw64:
    case RawFormat::Hex64:
        return "543210wv";
    case RawFormat::Raw56:
    case RawFormat::Hex56:
    case RawFormat::Raw24Of32:
    case RawFormat::HoursMilliseconds:
        return "r543210";
    default:
        return "543210";
    }
}

std::uint8_t byteNamed(char name, const SMARTDataEntry& entry)
{
    switch (name) {
    case 'r':
        return entry.reserved;
    case 'v':
        return entry.current;
    case 'w':
        return entry.worst;
    default:
        return name >= '0' && name <= '5' ? entry.raw[static_cast<std::size_t>(name - '0')] : std::uint8_t{0};
    }
}

SMARTRawValue count(std::uint64_t number) { return {static_cast<double>(number), number}; }

/// Hours, with minutes where the disk counts finer.
SMARTRawValue hours(double seconds)
{
    const auto full = static_cast<std::uint64_t>(seconds / 3600);
    const auto minutes = static_cast<std::uint64_t>(seconds / 60) % 60;
    return {seconds / 3600, minutes == 0 ? fmt::format("{} h", full) : fmt::format("{} h {} min", full, minutes)};
}

SMARTRawValue temperature(std::uint8_t lowest)
{
    const auto degrees = static_cast<std::int8_t>(lowest);
    return lowest == absentTemperature || !isDiskTemperature(degrees)
        ? count(lowest)
        : SMARTRawValue{static_cast<double>(degrees), degrees};
}

} // namespace

std::optional<RawFormat> rawFormatNamed(std::string_view name)
{
    const auto* found =
        std::find_if(formatNames.begin(), formatNames.end(), [name](const auto& entry) { return entry.first == name; });
    return found == formatNames.end() ? std::nullopt : std::optional(found->second);
}

std::uint64_t rawNumber(RawFormat format, std::string_view order, const SMARTDataEntry& entry)
{
    constexpr std::size_t widest = 8;
    std::uint64_t number = 0;
    for (const char name : (order.empty() ? usualOrder(format) : order).substr(0, widest)) {
        number = number << 8 | byteNamed(name, entry);
    }
    return number;
}

SMARTRawValue readRawValue(RawFormat format, std::uint64_t number)
{
    const auto word = [number](int place) { return static_cast<std::uint16_t>(number >> (16 * place)); };
    const auto byte = [number](int place) { return static_cast<std::uint8_t>(number >> (8 * place)); };
    const auto low32 = static_cast<std::uint32_t>(number);
    constexpr std::uint64_t low24 = 0xFF'FFFF;
    switch (format) {
    case RawFormat::Raw8:
        return {static_cast<double>(number),
            fmt::format("{} {} {} {} {} {}", byte(5), byte(4), byte(3), byte(2), byte(1), byte(0))};
    case RawFormat::Raw16:
        return {static_cast<double>(word(0)), fmt::format("{} {} {}", word(2), word(1), word(0))};
    case RawFormat::Hex48:
        return {static_cast<double>(number), fmt::format("0x{:012x}", number)};
    case RawFormat::Hex56:
        return {static_cast<double>(number), fmt::format("0x{:014x}", number)};
    case RawFormat::Hex64:
        return {static_cast<double>(number), fmt::format("0x{:016x}", number)};
    case RawFormat::Raw16Extra:
    case RawFormat::Average16:
        return count(word(0));
    case RawFormat::Raw24Extra:
        return count(number & low24);
    case RawFormat::Raw24Pair:
        return {static_cast<double>(number & low24), fmt::format("{}/{}", number >> 24 & low24, number & low24)};
    case RawFormat::Raw24Of32:
        return {static_cast<double>(number >> 32), fmt::format("{} in {}", number >> 32, low32)};
    case RawFormat::Minutes:
        return hours(low32 * 60.0);
    case RawFormat::HalfMinutes:
        return hours(static_cast<double>(number) * 30.0);
    case RawFormat::Seconds:
        return hours(static_cast<double>(number));
    case RawFormat::HoursMilliseconds:
        return hours(low32 * 3600.0 + static_cast<double>(number >> 32 & low24) / 1000);
    case RawFormat::Temperature:
        return temperature(byte(0));
    case RawFormat::TemperatureTenths:
        return {word(0) / 10.0, static_cast<int>(word(0) / 10)};
    case RawFormat::Raw48:
    case RawFormat::Raw56:
    case RawFormat::Raw64:
        break;
    }
    return count(number);
}

} // namespace meridal
