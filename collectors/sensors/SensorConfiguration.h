// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/ValueFwd.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// What a client says of one sensor, understood. The client's words may be nonsense: an entry of the wrong type counts as
/// missing, a number that is not finite too.
struct SensorConfiguration {
    std::string key;                  ///< an SMC key, or the name of a sensor service
    std::string name;                 ///< for people
    std::optional<std::int64_t> type; ///< a sensorKind, or a number of the client's own
    bool isWatts = false;             ///< "type" is the word "watts": a power out of millivolts and milliamperes
    double low = 0;
    double high = 0; ///< above 0: the sensor has fixed limits
    /// Keys that the value is computed from. One that cannot be a key is an empty text here, so that the list keeps its
    /// length.
    std::optional<std::vector<std::string>> multiply;
    std::optional<std::vector<std::string>> average;

    bool hasFixedLimits() const { return high > 0; }
    /// Whether the value is the product of two keys, in watts.
    bool isProduct() const { return isWatts && multiply && multiply->size() == 2; }
    /// The client's kind where it gives one, else what the key's first letter tells.
    std::int64_t kind() const;
    /// A text that two configurations share when they give the same value.
    std::string identity() const;

    bool operator==(const SensorConfiguration&) const = default;
};

/// Most keys that a value is computed from. A longer list is no list.
constexpr std::size_t mostConfiguredKeys = 256;

/// Most keys of a value that is sampled over and over: items are made of no more.
constexpr std::size_t mostSampledKeys = 16;

/// What can be understood of a client's configuration.
SensorConfiguration parseSensorConfiguration(const Value& configuration);

/// A figure fit for a client: 0 for what is no finite number.
double finite(double value);

/// Whether a key has the four characters that every key of an SMC has.
bool isSMCKey(const std::string& key);

} // namespace meridal
