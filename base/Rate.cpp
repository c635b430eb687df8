#include "base/Rate.h"

#include <cmath>

namespace meridal {

std::optional<std::uint64_t> countBetween(const CounterReading& previous, const CounterReading& current)
{
    if (current.identity != previous.identity || current.count < previous.count) {
        return std::nullopt;
    }
    return current.count - previous.count;
}

std::optional<double> ratePerSecond(const CounterReading& previous, const CounterReading& current)
{
    const auto count = countBetween(previous, current);
    if (!count || !(current.time > previous.time)) {
        return std::nullopt;
    }
    const double rate = static_cast<double>(*count) / (current.time - previous.time);
    return std::isfinite(rate) ? std::optional(rate) : std::nullopt; // no clock moves by so little or so much
}

} // namespace meridal
