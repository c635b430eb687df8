// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

/// What a person complains of.
enum class Complaint { Hot, Loud, Slow, Draining, BusyDisk, BusyNetwork, Memory };

/// "hot", "busy-disk"; nothing for any other word.
std::optional<Complaint> complaintNamed(std::string_view word);
std::vector<std::string> complaintNames();

/// An application or process, and how much it takes.
struct Consumer {
    std::string name;
    double amount = 0;
};
using Consumers = std::vector<Consumer>; ///< largest first

/// How a figure went, up to the moment in question. Under a name with "/day" behind it: over a day, for what is usual.
struct Course {
    std::vector<std::pair<double, double>> points; ///< s since 1970 and figure, oldest first
    double interval = 6;                           ///< s that a point stands for
};

/// What is known of the machine at a moment. Whatever is not known is left out; nothing of it is relied on.
struct Evidence {
    double time = 0;   ///< s since 1970
    bool isNow = true; ///< false: sentences are about the past
    std::string gap;   ///< why nothing of the moment is known; empty when something is
    Value machine;     ///< "cpu", "memory", "pressure", "disks", "network", "gpus" as in "machine.state"
    Value sensors;     ///< array as in "sensors.list"
    Value battery;     ///< as "battery.state"
    Value interfaces;  ///< array as in "network.interfaces"
    Consumers cpu;     ///< % of one core
    Consumers memory;  ///< bytes
    Consumers reading; ///< bytes a second, of storage
    Consumers writing;
    Consumers receiving; ///< bytes a second, by network
    Consumers sending;
    Consumers energy;                      ///< score
    Consumers recent;                      ///< what is in question, over the last minutes; s of processor time or score
    double recentSpan = 0;                 ///< s
    Consumers memoryBefore;                ///< bytes, a while ago
    double memoryBeforeSpan = 0;           ///< s
    std::map<std::string, Course> courses; ///< by series and column: "processors.busy", "sensors/TC0P.value"
};

/// Why it may be so.
struct Verdict {
    struct Cause {
        std::string text;            ///< a sentence or some, for people
        std::optional<double> since; ///< s since 1970
    };
    std::vector<Cause> causes;         ///< the weightiest first; none: nothing stands out
    std::vector<std::string> remarks;  ///< what goes with it, or what is so instead
    std::vector<std::string> notKnown; ///< what would have to be known to say more
    bool isKnown = true;               ///< false: not even whether it is so
};

Verdict verdictOf(Complaint complaint, const Evidence& evidence);

} // namespace meridal
