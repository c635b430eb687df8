// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Result.h"
#include "base/Runtime.h"
#include "base/Value.h"
#include "collectors/process/ProcessTableQuery.h"
#include "collectors/process/ProcessTextCache.h"
#include "daemon/MeridalHistory.h"
#include "daemon/ProcessDetails.h"
#include "daemon/ProcessViews.h"
#include "daemon/UserNames.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace meridal {

class ProcessStatCollector;
class TrafficService;
class Watches;
struct Context;
struct Peer;

/// All processes for a person to look through: sorted, filtered and cut here, so that of thousands only what is on a screen becomes
/// text. Answered out of the passes over the process table that are made anyway; who watches makes them read all figures. Main
/// queue only.
class ProcessTableService {
public:
    using Viewer = ProcessViews::Viewer;
    /// What it needs of the daemon.
    struct Daemon {
        Task pass; ///< makes one at once
        std::function<Viewer(const Peer& peer)> viewerOf;
        std::function<ProcessView(const Viewer& viewer, bool grouped)> viewOf; ///< of the latest pass
    };

    ProcessTableService(Context& context, ProcessStatCollector& processes, TrafficService& traffic);
    ProcessTableService(const ProcessTableService&) = delete;
    ProcessTableService& operator=(const ProcessTableService&) = delete;

    /// Adds "processes.table", "processes.watch" and "process.details". It must outlive them, and the watches this.
    void addTo(MeridalHistory& methods, Watches& watches, Daemon daemon);

    // The daemon's passes
    bool isWatched() const;
    /// Bits of RequestKey that the next pass is to read for this beside what clients want.
    std::uint32_t wanted() const;
    /// After each, when its traffic is there as well.
    void passed();

    /// What a watcher who knows the first is told of the second: rows that are not as they were, whole; the places of all, if
    /// they are others; who is no longer shown.
    static Value changedRows(const Value& before, const Value& now);

    /// s for which a question is answered out of the latest pass, and between two notifications at least.
    static constexpr double recentEnough = 1;
    static constexpr double shortestWatch = 2;
    /// s that a first question waits for rates, which take two readings, and for the names of users.
    static constexpr double rateDelay = 1;
    static constexpr double namePatience = 0.5;

private:
    using State = std::shared_ptr<const Value>;

    void answer(const Value& parameters, const Peer& peer, const MeridalHistory::Reply& reply);
    void answerDetails(const Value& parameters, const Peer& peer, const MeridalHistory::Reply& reply);
    Result<Value> details(std::int32_t pid, const Peer& peer);
    void askWithRates(std::function<void()> reply);
    void reply(const ProcessTableQuery& query, const Peer& peer, const MeridalHistory::Reply& reply);
    Result<std::function<std::shared_ptr<const Value>(const Peer& peer)>> choose(const Value& parameters);
    void readIfOlderThan(double seconds);
    bool knowsRates() const;
    State state(const ProcessTableQuery& query, const Peer& peer);
    Value table(const ProcessTableQuery& query, const Viewer& viewer);
    Value rowOf(const ProcessSelection::Row& row, const ProcessTableQuery& query);

    Context& context_;
    ProcessStatCollector& processes_;
    TrafficService& traffic_;
    UserNames userNames_;
    ProcessTextCache texts_;
    ProcessSelection selection_;
    ProcessDetails details_;
    Watches* watches_ = nullptr;
    Daemon daemon_;
    std::optional<double> latestPass_; ///< monotonic s
    bool isAsked_ = false;             ///< the pass that runs is for a question
    Lifetime lifetime_;
};

} // namespace meridal
