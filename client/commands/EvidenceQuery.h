// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/commands/Session.h"
#include "client/views/Reasons.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace meridal {

/// Asks the daemon for what a complaint takes: the machine's figures and the processes of the next seconds, or what is
/// recorded of a moment, and how the figures went before. What the daemon does not have is left out.
class EvidenceQuery {
public:
    using Use = std::function<void(const Evidence&)>;

    EvidenceQuery(Session& session, Complaint complaint, double time, bool isNow);

    /// Call once connected. `use` comes once, unless the session has failed.
    void start(Use use);

    static constexpr double watched =
        3.2; ///< s: the first lists have rates of a moment, those two seconds later are good

private:
    void askForState();
    void askForMoment();
    void askForLists();
    void takeList(const Dictionary& envelope);
    void watchOver();
    void askForCourses();
    void askForCourse(const std::string& series, const std::string& resolution, double span);
    void askForRecent();
    void askForMemoryBefore();
    /// A question that may be refused: an older daemon, or nothing there.
    void askIfThere(const std::string& method, const Value& parameters, std::function<void(const Value&)> take);
    void finishOne();

    Session& session_;
    const Complaint complaint_;
    Evidence evidence_;
    Use use_;
    int waitingFor_ = 0;
    std::map<std::string, double> arrivals_; ///< of the latest list of each type, s of the loop's clock
    std::unique_ptr<Timer> watch_;
};

/// The machine's figures of "moments.at" in the shape of "machine.state"; sensors as listed now, with their values of then.
Evidence evidenceOfMoment(const Value& moment, const Value& sensors);

} // namespace meridal
