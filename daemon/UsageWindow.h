// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/SelfUsage.h"

#include <deque>
#include <optional>

namespace meridal {

/// What the daemon cost over about the last minute, whoever asks and however often: a mean since the last question would
/// be that of the question itself. Main queue only.
class UsageWindow {
public:
    /// `now` in s of the clock that cannot step. Counts from here on.
    UsageWindow(SelfUsage& usage, double now);

    /// To be called at least every sampleInterval, from a wake-up that happens anyway.
    void tick(double now);

    /// Means from some moment until now; a figure that the host does not tell is absent.
    struct Means {
        double period = 0;                ///< s
        std::optional<double> cpuPercent; ///< of one core
        std::optional<double> wakeupsPerSecond;
    };
    Means lastMinute(double now);
    Means sinceStart(double now);

    static constexpr double sampleInterval = 10; ///< s
    static constexpr double length = 60;         ///< s

private:
    struct Sample {
        double time = 0;
        SelfCost cost;
    };

    Means meansSince(const Sample& from, double now);

    SelfUsage& usage_;
    Sample first_;
    std::deque<Sample> samples_; ///< the oldest is the newest of those that are at least a minute old
};

} // namespace meridal
