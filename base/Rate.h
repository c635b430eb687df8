// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstdint>
#include <optional>

namespace meridal {

/// A cumulative counter as it stood at one moment.
struct CounterReading {
    std::uint64_t identity = 0; ///< changes when the thing counted is another one (a reused pid, a replugged device)
    std::uint64_t count = 0;    ///< cumulative, in the counter's own unit
    double time = 0;            ///< s of the clock that cannot step
};

/// How far a counter moved between two readings; empty when it restarted or belongs to something else.
inline std::optional<std::uint64_t> countBetween(const CounterReading& previous, const CounterReading& current)
{
    if (current.identity != previous.identity || current.count < previous.count) {
        return std::nullopt;
    }
    return current.count - previous.count;
}

/// The same for a counter that begins at 0 again when it restarts: then what it has counted since.
constexpr std::uint64_t growth(std::uint64_t now, std::uint64_t before) { return now >= before ? now - before : now; }

/// Per second between two readings; empty where no honest figure exists (another identity, a counter that went back,
/// no time passed).
inline std::optional<double> ratePerSecond(const CounterReading& previous, const CounterReading& current)
{
    const auto count = countBetween(previous, current);
    if (!count || !(current.time > previous.time)) {
        return std::nullopt;
    }
    if (*count == 0) { // as most counters of most things
        return 0.0;
    }
    const double rate = static_cast<double>(*count) / (current.time - previous.time);
    return std::isfinite(rate) ? std::optional(rate) : std::nullopt; // no clock moves by so little or so much
}

} // namespace meridal
