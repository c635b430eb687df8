// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Runtime.h"
#include "base/Value.h"
#include "wire/Link.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace meridal {

class MeridalHistory;

/// Subscriptions of the second interface. A watched method takes {"interval": s} and answers with the whole of a state; from
/// then on its caller is told at that cadence what has changed, in notifications that call the method at the client, until
/// it calls the method with an interval of 0 or its connection ends.
///
/// A client has one watch a method, calling again replaces it. At most one notification of each waits for the client to
/// take it: while one does no other is made, and the next says all that has changed since the last. So nothing is lost on a
/// slow client but moments in between, and it costs nobody else. Main queue only.
class Watches {
public:
    /// The state as this client may see it; the same object as long as nothing changed, where that is known.
    using State = std::function<std::shared_ptr<const Value>(const Peer& peer)>;
    /// What to tell somebody who knows the one about the other; null for nothing. The first is null where all is to be told.
    using Changes = std::function<Value(const Value& before, const Value& now)>;

    Watches(Runtime& runtime, MeridalHistory& methods) : runtime_(runtime), methods_(methods) { }
    Watches(const Watches&) = delete;
    Watches& operator=(const Watches&) = delete;

    /// The state that parameters ask for, or what is wrong with them.
    using Choose = std::function<Result<State>(const Value& parameters)>;

    /// Adds the method. `shortestInterval` is in s, and the interval of those who name none. Both functions outlive this.
    void addWatch(
        const std::string& method, double shortestInterval, State state, Changes changes = &Watches::changedMembers);
    /// Adds a method of which each watcher has a state of their own, and is told when that has happened and the interval is over.
    void addChosenWatch(const std::string& method, double shortestInterval, Choose choose, Changes changes);
    /// Their state is another one now. Tells them soon, not inside this call.
    void happened(const std::string& method);
    /// Watches of clients that are there, of all methods or of one.
    std::size_t count();
    std::size_t count(const std::string& method) const;

    /// The members that are not what they were, null for those that went, and "time" in any case; null when only that moved.
    static Value changedMembers(const Value& before, const Value& now);

    static constexpr double longestInterval = 86'400; ///< s

private:
    struct Subject {
        std::string method;
        double shortestInterval = 1;
        Choose choose;
        Changes changes;
        bool waitsForNews = false; ///< of happened(), in place of the clock
    };
    struct Watch {
        const Subject* subject = nullptr;
        Caller caller;
        State state;
        double interval = 1;                ///< s
        double due = 0;                     ///< monotonic s
        std::shared_ptr<const Value> told;  ///< null: nothing that counts
        std::weak_ptr<const Envelope> sent; ///< the latest notification, as long as it waits
    };

    void add(Subject made);
    Result<Value> answer(const Subject& subject, const Value& given, const Caller& caller);
    std::shared_ptr<const Value> begin(const Subject& subject, const Caller& caller, double interval, State choice);
    void end(const Subject& subject, const Caller& caller);
    Watch* find(const Subject& subject, const Caller& caller);
    void tellAllThatAreDue(bool isNews);
    bool isDue(const Watch& watch, double now, bool isNews) const;
    void tell(Watch& watch);
    void forgetEnded();
    void schedule();

    Runtime& runtime_;
    MeridalHistory& methods_;
    std::map<std::string, Subject> subjects_; ///< by method
    std::vector<Watch> watches_;
    std::unique_ptr<Timer> timer_; ///< for the one that is due first; none without any
    bool isNewsPosted_ = false;
    Lifetime lifetime_;
};

} // namespace meridal
