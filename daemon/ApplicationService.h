// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "base/Runtime.h"
#include "base/Value.h"
#include "collectors/applications/ApplicationRecorder.h"
#include "collectors/applications/LargestGroups.h"
#include "collectors/process/GroupAccumulator.h"
#include "daemon/ProcessViews.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace meridal {

class MeridalHistory;
class ProcessStatCollector;
class TrafficService;
class Watches;
struct Context;
struct Peer;
struct TrafficAccount;

/// What every application has used, since the daemon's start and in the record. Every pass over the process table feeds it; it
/// sees to it that there is one now and then without any client, that this one reads all figures, and that traffic is counted.
/// Main queue only.
class ApplicationService {
public:
    using Viewer = ProcessViews::Viewer;
    using ViewerOf = std::function<Viewer(const Peer& peer)>;

    ApplicationService(Context& context, ProcessStatCollector& processes, TrafficService& traffic);
    ~ApplicationService();
    ApplicationService(const ApplicationService&) = delete;
    ApplicationService& operator=(const ApplicationService&) = delete;

    /// Whether anything of the following is done at all.
    void setRecording(bool recording);
    /// s between two passes of its own; absent: as the process table is best read.
    void setInterval(std::optional<double> seconds) { interval_ = seconds; }
    /// From now on, if it is to be.
    void start();

    // The daemon's passes
    /// Whether one is due though nobody wants any list.
    bool isDue() const;
    /// Bits of RequestKey that the next pass is to read for this beside what clients want; 0 as a rule.
    std::uint32_t wanted() const;
    bool isRecording() const { return groups_.has_value(); }
    /// After a pass that has read the table, with what was wanted for it.
    void measured(std::uint32_t updateMask);
    /// After it, when the pass's traffic is there as well: what is due for the record.
    void record();
    /// Every few seconds, with or without a pass.
    void tick();
    /// Has all that is not in the file yet queued for it.
    void save();

    /// Adds the methods below. `pass` makes a pass at once, `viewerOf` says what a client may see. It must outlive all of them.
    void addTo(MeridalHistory& methods, Watches& watches, Task pass, ViewerOf viewerOf);
    /// "groups.totals": {"after", "limit"}, page by page in the order in which groups came up; or {"largest"}, so many of
    /// them by name (LargestGroups). With "passive" as of the latest pass, however old.
    Result<Value> totals(const Value& parameters, const Peer& peer);
    /// Of "groups.watch": all of them at once.
    std::shared_ptr<const Value> state(const Peer& peer);
    /// Those of the second that are not as in the first, and which went.
    static Value changedGroups(const Value& before, const Value& now);

    ApplicationRecorder& recorder() { return recorder_; }

    /// s between two passes of its own: in the kernel, and process by process.
    static constexpr double cheapInterval = 10;
    static constexpr double dearInterval = 30;
    /// s for which a question is answered out of the latest pass.
    static constexpr double recentEnough = 1;

private:
    double interval() const;
    void apply();
    void addTraffic(const TrafficAccount& fold);
    void readIfOlderThan(double seconds);
    std::vector<const GroupTotals*> shownTo(const Viewer& viewer) const;
    Value page(
        std::vector<const GroupTotals*> groups, const std::optional<std::uint64_t>& after, std::size_t limit) const;
    Value largest(std::size_t count, const Viewer& viewer, const Peer& peer);
    Value frame() const;
    Value describe(const GroupTotals& group) const;
    static bool isShown(const GroupTotals& group, const Viewer& viewer);

    Context& context_;
    ProcessStatCollector& processes_;
    TrafficService& traffic_;
    ApplicationRecorder recorder_;
    std::optional<GroupAccumulator> groups_; ///< absent: nothing is recorded
    LargestGroupsByAsker largest_;
    std::optional<double> interval_;
    bool isStarted_ = false;
    bool isToRecord_ = true;
    Task pass_;
    ViewerOf viewerOf_;
    bool isAsked_ = false; ///< the pass that runs is for a question
    // Monotonic s
    std::optional<double> latestPass_;
    std::optional<double> latestFull_; ///< that read everything
    std::optional<double> latestRecord_;
    double minute_ = 0;                                     ///< the one that runs, minutes since 1970
    std::map<Viewer, std::shared_ptr<const Value>> states_; ///< of the latest pass
};

} // namespace meridal
