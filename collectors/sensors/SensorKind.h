// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string_view>

namespace meridal {

/// What a sensor measures, by the numbers that clients use. Clients may give others: those have no unit and no name.
namespace sensorKind {
constexpr std::int64_t temperature = 0;
constexpr std::int64_t fan = 2;
constexpr std::int64_t voltage = 3;
constexpr std::int64_t current = 4;
constexpr std::int64_t power = 5;
constexpr std::int64_t humidity = 20; ///< of the host's sensors; no key's letter tells it
} // namespace sensorKind

/// The kind that the first letter of an SMC key tells, whatever its case; temperature for any other.
std::int64_t sensorKindOfKey(std::string_view key);

/// "°C", "rpm", "V", "A", "W", "%"; empty for the rest.
std::string_view sensorUnit(std::int64_t kind);

/// "temperature", "fan", "voltage", "current", "power", "humidity"; "other" for the rest.
std::string_view sensorKindName(std::int64_t kind);

} // namespace meridal
