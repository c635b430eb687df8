// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/ValueFwd.h"
#include "wire/Link.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

class MeridalDaemon;

/// What the daemon says of itself: its cost, its clients, and what it could not get on this machine and why. Figures
/// that the host does not tell are left out. Main queue only.
class StatusReport {
public:
    /// `transport` sums up all listeners.
    StatusReport(MeridalDaemon& daemon, std::function<ListenerStatistics()> transport);

    /// What a collector says of its own work, under a key of its own.
    void addSection(std::string key, std::function<Dictionary()> describe);

    Dictionary build();

private:
    Dictionary usage();
    Dictionary transportFigures() const;
    Dictionary databaseFigures() const;

    MeridalDaemon& daemon_;
    std::function<ListenerStatistics()> transport_;
    std::vector<std::pair<std::string, std::function<Dictionary()>>> sections_;
    double startedAt_; ///< s of the clock that cannot step
};

} // namespace meridal
