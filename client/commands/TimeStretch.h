// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "client/commands/Syntax.h"

#include <span>
#include <string>
#include <string_view>

namespace meridal {

/// How far back a word reaches, and what that is called.
struct NamedRange {
    std::string_view name;
    double span = 0; ///< s; 0: as far as there is a record
    std::string_view title;
};

/// A stretch of time as it was typed.
struct TimeWords {
    std::string range; ///< one of the names, also what is usual
    std::string from;  ///< a moment; empty: the range
    std::string until; ///< a moment; empty: now
};

/// A stretch of the past.
struct TimeStretch {
    double from = 0; ///< s since 1970
    double until = 0;
    std::string title;     ///< "last day", "20 Nov 18:30 to 21 Nov 03:00"
    std::string_view name; ///< of the range that ends now; empty for any other stretch
};

/// Adds --range, --from and --until.
void addTimeOptions(Syntax& syntax, TimeWords& words, std::span<const NamedRange> ranges);

/// What the words mean at a moment; else why they make no sense, in words. An end to come is now.
Result<TimeStretch> timeStretchFrom(const TimeWords& words, std::span<const NamedRange> ranges, double now);

} // namespace meridal
