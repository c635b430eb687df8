// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <limits>
#include <optional>

namespace meridal {

/// A figure that may be absent, in the room of one that may not: absent is what is no number, which no figure is. For those of
/// which there are thousands; it turns into the usual form wherever it is handed on.
class OptionalDouble {
public:
    constexpr OptionalDouble() = default;
    constexpr OptionalDouble(std::nullopt_t) { }
    constexpr OptionalDouble(double figure) : figure_(figure) { }
    constexpr OptionalDouble(const std::optional<double>& figure) : figure_(figure.value_or(absent)) { }

    bool has_value() const { return !std::isnan(figure_); }
    explicit operator bool() const { return has_value(); }
    double operator*() const { return figure_; }
    double value_or(double other) const { return has_value() ? figure_ : other; }
    void reset() { figure_ = absent; }
    operator std::optional<double>() const { return has_value() ? std::optional(figure_) : std::nullopt; }

    friend bool operator==(const OptionalDouble& one, const OptionalDouble& other)
    {
        return one.figure_ == other.figure_ || (!one.has_value() && !other.has_value());
    }

private:
    static constexpr double absent = std::numeric_limits<double>::quiet_NaN();
    double figure_ = absent;
};

} // namespace meridal
