#pragma once

#include <functional>

namespace meridal {

/// Keeps a wall clock that is wrong for a moment out of what is stored. A firmware clock with a flipped digit, a time
/// server gone mad or a mistyped date put it a year ahead for some seconds; taken at its word, the year would become a gap
/// that pushes every measured row out of its table.
///
/// A clock that is further ahead than a day of where it must be is believed when a time source keeps it, or when it has
/// stood there for four minutes: less than the five that live samples reach back, so that what is measured meanwhile
/// still finds its way into the averages. A machine that was off or asleep for longer than a day looks the same.
class WallClockGuard {
public:
    /// What is stored already reaches up to this moment, s since 1970; 0: nothing is stored.
    void begin(double storedUntil, double steady);
    /// Whether the wall clock may be believed now. Both clocks in seconds, the second one never steps.
    bool believes(double wall, double steady, const std::function<bool()>& isSynchronised);
    /// Whether it has been an hour since a leap was taken up: what cannot be undone waits for that.
    bool isSettled(double steady) const { return steady >= settledFrom_; }
    /// How far ahead the clock in doubt is, in seconds; 0 while it is believed.
    double ahead() const { return ahead_; }

private:
    double latest_ = 0;       ///< the latest moment believed; 0: none yet
    double latestSteady_ = 0; ///< the other clock then
    double ahead_ = 0;
    double settledFrom_ = 0; ///< of the clock that never steps
    double doubtSince_ = 0;  ///< of the clock that never steps
    double doubtOffset_ = 0; ///< between the clocks
};

} // namespace meridal
