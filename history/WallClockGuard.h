// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <limits>

namespace meridal {

/// Keeps a wall clock that is wrong for a moment out of what is stored. A firmware clock with a flipped digit, a time
/// server gone mad or a mistyped date put it a year ahead for some seconds; taken at its word, the year would become a gap
/// that pushes every measured row out of its table.
///
/// A clock that is further ahead than a day of where it must be is believed when a time source keeps it, or when it has
/// stood there for four minutes: less than the five that live samples reach back, so that what is measured meanwhile
/// still finds its way into the averages. A machine that was off or asleep for longer than a day looks the same.
///
/// A clock that is set back is believed at once. When it has stood more than a day back for four minutes, it is where the
/// clock must be: a leap that was believed and put right is doubted when it comes again.
class WallClockGuard {
public:
    /// What is stored already reaches up to this moment, s since 1970; 0: nothing is stored. Again for what becomes
    /// readable later.
    void begin(double storedUntil, double steady);
    /// Whether the wall clock may be believed now. Both clocks in seconds, the second one never steps.
    bool believes(double wall, double steady, const std::function<bool()>& isSynchronised);
    /// Whether it has been an hour since the start, and since a leap was taken up: what cannot be undone waits for that.
    bool isSettled(double steady) const { return steady >= settledFrom_; }
    /// How far ahead the clock in doubt is, in seconds; 0 while it is believed.
    double ahead() const { return ahead_; }

private:
    static constexpr double never = std::numeric_limits<double>::infinity();

    double latest_ = 0;       ///< the latest moment believed; 0: none yet
    double latestSteady_ = 0; ///< the other clock then
    double ahead_ = 0;
    double settledFrom_ = 0;     ///< of the clock that never steps
    double behindSince_ = never; ///< of the clock that never steps: since then the other one is far back
    double doubtSince_ = 0;      ///< of the clock that never steps
    double doubtOffset_ = 0;     ///< between the clocks
};

} // namespace meridal
