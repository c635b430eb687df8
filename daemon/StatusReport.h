// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/ValueFwd.h"
#include "platform/host/SelfUsage.h"
#include "wire/Link.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

class MeridalDaemon;
class MeridalHistory;

/// What the daemon says of itself: its cost, its clients, and what it could not get on this machine and why. Figures
/// that the host does not tell are left out. Main queue only.
class StatusReport {
public:
    /// `transport` sums up all listeners.
    StatusReport(MeridalDaemon& daemon, std::function<ListenerStatistics()> transport);

    /// What a collector says of its own work, under a key of its own.
    void addSection(std::string key, std::function<Dictionary()> describe);

    Dictionary build() { return build(0); }
    /// "status": with "passive" what is dear to look up of the daemon itself is up to a minute old.
    void addTo(MeridalHistory& methods);

    static constexpr double passiveAge = 60; ///< s

private:
    Dictionary build(double oldest);
    SelfUsageReading reading(double oldest);
    Dictionary usage(double oldest);
    Dictionary transportFigures() const;
    Dictionary databaseFigures() const;

    MeridalDaemon& daemon_;
    std::function<ListenerStatistics()> transport_;
    std::vector<std::pair<std::string, std::function<Dictionary()>>> sections_;
    // s of the clock that cannot step
    double startedAt_;
    std::optional<double> readAt_;
    SelfUsageReading reading_;
};

} // namespace meridal
