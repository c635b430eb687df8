// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/check/CheckReport.h"

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

/// A change worth telling somebody.
struct Alert {
    std::string topic;
    CheckState state = CheckState::Fine;  ///< the worst that is wrong there now
    CheckState before = CheckState::Fine; ///< when it was told last
    std::string text;                     ///< lines: what is wrong, and what no longer is
};

/// Finds out what changed from look to look. What is wrong with a thing counts when so many looks in a row differ from what
/// was told last, and so does its end. A topic is told when its worst state changes, and when anything in it gets worse
/// than it was told: a second disk that fails is news though the first one has failed already. What a look knows nothing of
/// (a disk that sleeps and was not read since the daemon's start, what a daemon that has just started has not found yet, all
/// topics while none answers) stays as it was told.
class AlertWatch {
public:
    /// Takes a look. `after`: the looks in a row that a change needs, at least 1.
    std::vector<Alert> look(const CheckReport& report, int after);

private:
    struct Told {
        CheckFinding finding; ///< the latest; its state is the one that was told
        int differing = 0;    ///< looks in a row
    };
    using Key = std::pair<std::string, std::string>; ///< a thing and what of it
    using Topic = std::map<Key, Told>;
    struct Changes {
        bool isWorse = false;
        std::vector<std::string> ended; ///< lines
    };

    static Changes compare(Topic& told, const CheckedTopic& now, int after);
    static CheckState stateOf(const Topic& told);

    std::map<std::string, Topic> topics_;
};

} // namespace meridal
