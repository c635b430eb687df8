// SPDX-License-Identifier: Apache-2.0
#include "history/WallClockGuard.h"

#include <algorithm>
#include <cmath>

namespace meridal {

namespace {

constexpr double largestLeap = 86'400; ///< s; less is taken up at once, as the gap of a night's sleep is
constexpr double trialTime = 240;      ///< s that a leap has to stand, and a return from one
constexpr double settlingTime = 3600;  ///< s

/// A clock in doubt that moves by more than this, in seconds, is tried anew.
constexpr double steadyWithin = 60;

} // namespace

void WallClockGuard::begin(double storedUntil, double steady)
{
    if (storedUntil > latest_) {
        latest_ = storedUntil;
        latestSteady_ = steady;
    }
    behindSince_ = never;
    settledFrom_ = steady + settlingTime; // what is stored may be of a clock that was wrong already
}

bool WallClockGuard::believes(double wall, double steady, const std::function<bool()>& isSynchronised)
{
    const double ahead = latest_ > 0 ? wall - (latest_ + (steady - latestSteady_)) : 0;
    if (ahead > largestLeap) {
        settledFrom_ = steady + settlingTime;
    }
    if (ahead > largestLeap && !isSynchronised()) {
        const double offset = wall - steady;
        if (ahead_ == 0 || std::abs(offset - doubtOffset_) > steadyWithin) {
            doubtSince_ = steady;
            doubtOffset_ = offset;
        }
        if (steady - doubtSince_ < trialTime) {
            ahead_ = ahead;
            return false;
        }
    }
    ahead_ = 0;
    behindSince_ = ahead < -largestLeap ? std::min(behindSince_, steady) : never;
    if (wall > latest_ || latest_ == 0 || steady - behindSince_ >= trialTime) {
        latest_ = wall;
        latestSteady_ = steady;
    }
    return true;
}

} // namespace meridal
