// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/process/ProcessRanking.h"
#include "platform/host/ProcessVisibility.h"
#include "wire/Envelope.h"
#include "wire/RequestKey.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <unordered_set>

namespace meridal {

class ProcessStatCollector;
struct Context;
struct Peer;

/// Keeps clients to what the host itself would show them of its processes, and the lists of the current pass: one of each
/// kind for all clients together, and where the host restricts them, one more for each user who has a client. Main
/// queue only.
class ProcessViews {
public:
    /// A user whose view is restricted; none: who sees everything.
    using Viewer = std::optional<std::uint32_t>;

    ProcessViews(Context& context, const ProcessStatCollector& processes) : context_(context), processes_(processes) { }

    /// Forgets the lists.
    void beginPass();
    /// The first question in a pass now and then asks the host anew how it restricts its users: within a pass all are answered
    /// by one rule, and while nobody looks there is no question.
    Viewer viewerOf(const Peer& peer);
    /// What a viewer may see of the processes. Valid until the next pass.
    ProcessView viewOf(const Viewer& viewer, bool grouped) { return {.grouped = grouped, .shown = shownTo(viewer)}; }
    /// Whether a viewer may see this process, which need not be in the table.
    bool shows(const Viewer& viewer, std::int32_t pid);
    /// Where the list of the current pass is kept; null until somebody has put it there.
    EnvelopePtr& list(const Viewer& viewer, RequestKey list, bool grouped);
    /// Of all viewers.
    void forgetList(RequestKey list);

    /// s after an answer of the host in which passes do not ask again.
    static constexpr double checkInterval = 10;

private:
    /// By bit number of the list and by grouping.
    using Lists = std::array<std::array<EnvelopePtr, 2>, 5>;
    using Pids = std::unordered_set<std::int32_t>;

    const Pids* shownTo(const Viewer& viewer);

    Context& context_;
    const ProcessStatCollector& processes_;
    std::optional<ProcessRestriction> restriction_;
    double checkAt_ = 0;                    ///< monotonic s
    bool isCheckDue_ = true;                ///< for the next question of this pass
    std::map<Viewer, Lists> lists_;         ///< of the current pass
    std::map<std::uint32_t, Pids> visible_; ///< by user; filled for all at once when one of them asks
};

} // namespace meridal
