#pragma once

#include "base/Result.h"
#include "base/Runtime.h"
#include "base/Value.h"
#include "collectors/process/GroupAccumulator.h"
#include "daemon/ProcessViews.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>

namespace meridal {

class MeridalHistory;
class ProcessStatCollector;
class Watches;
struct Context;
struct Peer;

/// What every application has used since the daemon's start. Every pass over the process table feeds it; it sees to it that
/// there is one now and then without any client, and that this one reads all figures. Main queue only.
class ApplicationService {
public:
    using Viewer = ProcessViews::Viewer;
    using ViewerOf = std::function<Viewer(const Peer& peer)>;

    /// `isRecording`: whether anything of the following is done at all.
    ApplicationService(Context& context, ProcessStatCollector& processes, bool isRecording);

    // The daemon's passes
    /// Whether one is due though nobody wants any list.
    bool isDue() const;
    /// Bits of RequestKey that the next pass is to read for this beside what clients want; 0 as a rule.
    std::uint32_t wanted() const;
    bool isRecording() const { return groups_.has_value(); }
    /// After a pass that has read the table, with what was wanted for it.
    void measured(std::uint32_t updateMask);
    /// Adds a fold's bytes, see GroupAccumulator::addTraffic().
    void addTraffic(std::uint64_t kernelReceived, std::uint64_t kernelSent);

    /// Adds the methods below. `pass` makes a pass at once, `viewerOf` says what a client may see. It must outlive all of them.
    void addTo(MeridalHistory& methods, Watches& watches, Task pass, ViewerOf viewerOf);
    /// "groups.totals": {"after", "limit"}, page by page in the order in which groups came up.
    Result<Value> totals(const Value& parameters, const Peer& peer);
    /// Of "groups.watch": all of them at once.
    std::shared_ptr<const Value> state(const Peer& peer);
    /// Those of the second that are not as in the first, and which went.
    static Value changedGroups(const Value& before, const Value& now);

    const GroupAccumulator* groups() const { return groups_ ? &*groups_ : nullptr; }

    /// s between two passes of its own: in the kernel, and process by process.
    static constexpr double cheapInterval = 10;
    static constexpr double dearInterval = 30;
    /// s for which a question is answered out of the latest pass.
    static constexpr double recentEnough = 1;

private:
    double interval() const;
    void readIfOld();
    Value frame() const;
    Value describe(const GroupTotals& group) const;
    static bool isShown(const GroupTotals& group, const Viewer& viewer);

    Context& context_;
    ProcessStatCollector& processes_;
    std::optional<GroupAccumulator> groups_; ///< absent: nothing is recorded
    Task pass_;
    ViewerOf viewerOf_;
    bool isAsked_ = false; ///< the pass that runs is for a question
    // Monotonic s
    std::optional<double> latestPass_;
    std::optional<double> latestFull_;                      ///< that read everything
    std::map<Viewer, std::shared_ptr<const Value>> states_; ///< of the latest pass
};

} // namespace meridal
