#include "collectors/disks/SMARTRawValue.h"

#include <fmt/format.h>

namespace meridal {

namespace {

/// A byte that stands for "no reading" in a temperature.
constexpr std::uint8_t absentTemperature = 128;

SMARTRawValue count(std::uint64_t number) { return {static_cast<double>(number), number}; }

/// Hours, with minutes where the disk counts finer.
SMARTRawValue hours(double seconds)
{
    const double whole = seconds / 3600;
    const auto full = static_cast<std::uint64_t>(whole);
    const auto minutes = static_cast<std::uint64_t>(seconds / 60) % 60;
    return {whole, minutes == 0 ? fmt::format("{} h", full) : fmt::format("{} h {} min", full, minutes)};
}

SMARTRawValue temperature(std::uint8_t lowest)
{
    const int degrees = lowest == absentTemperature ? absentTemperature : static_cast<std::int8_t>(lowest);
    return {static_cast<double>(degrees), degrees};
}

SMARTRawValue bytes(std::uint64_t units, double unit)
{
    const double total = static_cast<double>(units) * unit;
    return {total, fmt::format("{:.4g} GB", total / 1e9)};
}

} // namespace

SMARTRawValue readRawValue(RawFormat format, const std::array<std::uint8_t, 6>& raw, std::uint64_t wide)
{
    const std::uint64_t all = wide & 0xFFFF'FFFF'FFFFU;
    const auto low16 = static_cast<std::uint16_t>(wide);
    const auto low32 = static_cast<std::uint32_t>(wide);
    const auto high16 = static_cast<std::uint16_t>(all >> 32);
    switch (format) {
    case RawFormat::Bytes:
        return {
            static_cast<double>(all), fmt::format("{} {} {} {} {} {}", raw[5], raw[4], raw[3], raw[2], raw[1], raw[0])};
    case RawFormat::Words:
        return {static_cast<double>(low16), fmt::format("{} {} {}", high16, low32 >> 16, low16)};
    case RawFormat::Hex48:
        return {static_cast<double>(all), fmt::format("0x{:012x}", all)};
    case RawFormat::Hex64:
        return {static_cast<double>(wide), fmt::format("0x{:016x}", wide)};
    case RawFormat::Raw64:
        return count(wide);
    case RawFormat::Low16:
        return count(low16);
    case RawFormat::Low24:
        return count(low32 & 0xFF'FFFFU);
    case RawFormat::Low32:
        return count(low32);
    case RawFormat::Hours:
    case RawFormat::HoursAndFraction:
        return hours(low32 * 3600.0);
    case RawFormat::Minutes:
        return hours(low32 * 60.0);
    case RawFormat::HalfMinutes:
        return hours(low32 * 30.0);
    case RawFormat::Seconds:
        return hours(low32);
    case RawFormat::Milliseconds:
        return {static_cast<double>(low16), fmt::format("{} ms", low16)};
    case RawFormat::Temperature:
        return temperature(raw[0]);
    case RawFormat::TemperatureTenths:
        return {low16 / 10.0, static_cast<int>(low16 / 10)};
    case RawFormat::ErrorsOfOperations:
        return {static_cast<double>(high16), fmt::format("{} in {}", high16, low32)};
    case RawFormat::Sectors:
        return bytes(all, 512);
    case RawFormat::Mebibytes32:
        return bytes(all, 32.0 * 1024 * 1024);
    case RawFormat::Gibibytes:
        return bytes(all, 1024.0 * 1024 * 1024);
    case RawFormat::Raw48:
        break;
    }
    return count(all);
}

} // namespace meridal
